// Writes standard input to a file by way of the tools' own class: PATH, and the time of last
// modification in seconds.

#include "tools/shared/AtomicFile.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

int main(int count, char** arguments)
{
    if (count != 3)
        return 2;
    AtomicFile file(arguments[1]);
    file.setModificationTime({ .tv_sec = std::atol(arguments[2]), .tv_nsec = 0 });
    if (file.open() && file.writeContentsOf(STDIN_FILENO) && file.commit())
        return 0;
    std::fprintf(stderr, "%s\n", file.error().c_str());
    return 1;
}
