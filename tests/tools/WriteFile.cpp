// Writes standard input, a file, to another by way of the tools' own class: PATH, and the time of
// last modification in seconds.

#include "shared/AtomicFile.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

int main(int count, char** arguments)
{
    if (count != 3)
        return 2;
    struct stat input;
    if (::fstat(STDIN_FILENO, &input) != 0)
        return 2;
    AtomicFile file(arguments[1]);
    file.setModificationTime({ .tv_sec = std::atol(arguments[2]), .tv_nsec = 0 });
    if (file.open() && file.writeRangeOf(STDIN_FILENO, 0, static_cast<std::uint64_t>(input.st_size))
        && file.commit())
        return 0;
    std::fprintf(stderr, "%s\n", file.error().c_str());
    return 1;
}
