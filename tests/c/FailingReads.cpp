#include "FailingReads.h"

#include "support/NextFunction.h"

#include <cerrno>
#include <sys/types.h>
#include <utility>

namespace {

thread_local bool isActive { false };
thread_local bool hasFailed { false };
thread_local std::size_t left { 0 };
thread_local InterruptedRead* interrupted { nullptr };

}

void interruptReadIfWanted()
{
    if (!interrupted || interrupted->isDone() || interrupted->_left--)
        return;
    auto const interruption = std::exchange(interrupted->_interruption, nullptr);
    interruption();
}

InterruptedRead::InterruptedRead(std::size_t count, std::function<void()> interruption)
    : _left(count)
    , _interruption(std::move(interruption))
{
    interrupted = this;
}

InterruptedRead::~InterruptedRead() { interrupted = nullptr; }

FailingReads::FailingReads(std::size_t count)
{
    isActive = true;
    hasFailed = false;
    left = count;
}

FailingReads::~FailingReads() { isActive = false; }

bool FailingReads::haveFailed() const { return hasFailed; }

extern "C" {

/// Called instead of the C library's own.
ssize_t pread(int descriptor, void* target, size_t count, off_t position)
{
    interruptReadIfWanted();
    if (isActive && left-- == 0) {
        left = 0;
        hasFailed = true;
        errno = EIO;
        return -1;
    }
    static auto* const original = next<ssize_t(int, void*, size_t, off_t)>("pread");
    return original(descriptor, target, count, position);
}
}
