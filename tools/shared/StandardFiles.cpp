#include "tools/shared/StandardFiles.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

void openMissingStandardFiles()
{
    for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file) {
        // Gets the lowest number that is free, which is this one. Nothing can be written to it:
        // results that nobody takes are still an error.
        if (::fcntl(file, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY) < 0)
            std::_Exit(EXIT_FAILURE); // Better nothing than a damaged file.
    }
}
