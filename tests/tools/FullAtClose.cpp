// Preloaded into a program, lets its files lie where the lack of room shows when they are closed:
// on a share, or a file system in user space.

#include "support/NextFunction.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/// Fails, as the kernel does it, with the descriptor closed.
extern "C" [[gnu::visibility("default")]] int close(int descriptor)
{
    struct stat status;
    bool const isWritten = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)
        && (::fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDWR;
    static auto* const original = next<int(int)>("close");
    int const result = original(descriptor);
    if (!isWritten)
        return result;
    errno = ENOSPC;
    return -1;
}
