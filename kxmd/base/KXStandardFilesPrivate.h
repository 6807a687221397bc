#pragma once

#include <fcntl.h>
#include <unistd.h>

/// Keeps the numbers of standard input, output and error from our files in a host that closed them,
/// as long as the object lives: whatever the host prints meanwhile would go into a file that has
/// one of them.
class KXStandardFiles {
public:
    KXStandardFiles()
    {
        for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file) {
            // Gets the lowest number that is free, which is this one. Nothing can be written to it.
            _isOurs[file]
                = ::fcntl(file, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY | O_CLOEXEC) == file;
        }
    }
    ~KXStandardFiles()
    {
        for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file) {
            if (_isOurs[file])
                ::close(file);
        }
    }
    KXStandardFiles(KXStandardFiles const&) = delete;
    KXStandardFiles& operator=(KXStandardFiles const&) = delete;

private:
    bool _isOurs[STDERR_FILENO + 1] {};
};

/// A descriptor for the same file that is none of the standard ones; the old one is closed if it
/// was. Negative, as the one given, when there is none.
inline int KXAboveStandardFiles(int descriptor)
{
    if (descriptor < 0 || descriptor > STDERR_FILENO)
        return descriptor;
    int const above = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::close(descriptor);
    return above;
}
