// Preloaded into a program, lets its files lie on a phone's card: a FAT file system, as the kernel
// or a helper in user space serves it.

#include "support/NextFunction.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {

/// Knows no files without a name.
[[gnu::visibility("default")]] int open(char const* path, int flags, ...)
{
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    std::va_list arguments;
    va_start(arguments, flags);
    unsigned const mode = flags & O_CREAT ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    static auto* const original = next<int(char const*, int, ...)>("open");
    return original(path, flags, mode);
}

/// Knows no permissions.
[[gnu::visibility("default")]] int fchmod(int, mode_t) noexcept
{
    errno = EPERM;
    return -1;
}

/// Cannot be waited for.
[[gnu::visibility("default")]] int fdatasync(int)
{
    errno = EINVAL;
    return -1;
}
}
