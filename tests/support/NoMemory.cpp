#include "support/NoMemory.h"

#include "support/NextFunction.h"

#include <cerrno>
#include <cstdlib>

namespace {

enum class State { off, counting, failed };

thread_local State state = State::off;
thread_local std::size_t left = 0;

}

NoMemory::NoMemory(std::size_t count)
{
    left = count;
    state = State::counting;
}

NoMemory::~NoMemory() { state = State::off; }

bool NoMemory::hasFailed() const { return state == State::failed; }

extern "C" {

/// Called instead of the C library's own.
int posix_memalign(void** memory, std::size_t alignment, std::size_t length) noexcept
{
    if (state == State::counting && left-- == 0) {
        state = State::failed;
        return ENOMEM;
    }
    static auto* const original = next<int(void**, std::size_t, std::size_t)>("posix_memalign");
    return original(memory, alignment, length);
}
}
