#include "kxmd/platform/linux/render/program/KXConfinementPrivate.h"

#include <cstdlib>
#include <string>
#include <unistd.h>

// Runs a program of others that shows a file, such as a thumbnailer of the desktop, with no more
// than that needs:
//
//     kxmd-confined SOURCE FOLDER PROGRAM [ARGUMENT...]
//
// The program may read SOURCE and what is installed, and write into FOLDER, which may be empty for
// none. Where the kernel cannot confine it, it runs with what there is, and its starter's bounds of
// time and memory.

namespace {

/// Nothing that tells of the user; what programs keep for themselves goes into the folder.
void setEnvironment(std::string const& folder)
{
    char const* const types = std::getenv("XDG_DATA_DIRS");
    std::string const dataFolders = types ? types : "/usr/local/share:/usr/share";
    ::clearenv();
    ::setenv("PATH", "/usr/local/bin:/usr/bin:/bin", 1);
    ::setenv("LANG", "C.UTF-8", 1);
    ::setenv("XDG_DATA_DIRS", dataFolders.c_str(), 1);
    if (folder.empty())
        return;
    for (char const* const name :
        { "HOME", "TMPDIR", "XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME" })
        ::setenv(name, folder.c_str(), 1);
}

}

int main(int count, char** arguments)
{
    constexpr int firstOfProgram = 3, cannotRun = 126;
    if (count <= firstOfProgram)
        return cannotRun;
    setEnvironment(arguments[2]);
    (void)confineProgram({ arguments[firstOfProgram], arguments[1], arguments[2] });
    ::execv(arguments[firstOfProgram], arguments + firstOfProgram);
    ::_exit(cannotRun); // What else is done at a program's end may be forbidden by now.
}
