#include "support/SystemCalls.h"

#include "support/NextFunction.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

thread_local SystemCalls counted;
thread_local bool areReadsHesitant { false };

}

SystemCalls SystemCalls::soFar() { return counted; }

HesitantReads::HesitantReads() { areReadsHesitant = true; }
HesitantReads::~HesitantReads() { areReadsHesitant = false; }

extern "C" {

int open(char const* path, int flags, ...)
{
    static auto* const original = next<int(char const*, int, ...)>("open");
    std::va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    ++counted.calls;
    ++counted.opened;
    return original(path, flags, mode);
}

int stat(char const* path, struct stat* status) noexcept
{
    static auto* const original = next<int(char const*, struct stat*)>("stat");
    ++counted.calls;
    return original(path, status);
}

int fstat(int descriptor, struct stat* status) noexcept
{
    static auto* const original = next<int(int, struct stat*)>("fstat");
    ++counted.calls;
    return original(descriptor, status);
}

ssize_t pread(int descriptor, void* target, size_t count, off_t position)
{
    static auto* const original = next<ssize_t(int, void*, size_t, off_t)>("pread");
    ++counted.calls;
    if (areReadsHesitant && counted.calls % 2) {
        errno = EINTR;
        return -1;
    }
    if (areReadsHesitant)
        count = std::min<size_t>(count, 1);
    ssize_t const got = original(descriptor, target, count, position);
    if (got > 0)
        counted.bytesRead += static_cast<std::uint64_t>(got);
    return got;
}

ssize_t read(int descriptor, void* target, size_t count)
{
    static auto* const original = next<ssize_t(int, void*, size_t)>("read");
    ssize_t const got = original(descriptor, target, count);
    ++counted.calls;
    if (got > 0)
        counted.bytesRead += static_cast<std::uint64_t>(got);
    return got;
}

int close(int descriptor)
{
    static auto* const original = next<int(int)>("close");
    ++counted.calls;
    return original(descriptor);
}
}
