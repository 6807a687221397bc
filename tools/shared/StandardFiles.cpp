#include "tools/shared/StandardFiles.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

void openMissingStandardFiles()
{
    for (;;) {
        // Gets the lowest number that is free. Nothing can be written to it: results that nobody
        // takes are still an error.
        int const descriptor = ::open("/dev/null", O_RDONLY);
        if (descriptor < 0)
            std::_Exit(EXIT_FAILURE); // Better nothing than a damaged file, and nobody to tell.
        if (descriptor > STDERR_FILENO) {
            ::close(descriptor);
            return;
        }
    }
}
