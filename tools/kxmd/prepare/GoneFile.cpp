#include "GoneFile.h"

#include <cerrno>
#include <sys/stat.h>

bool isGone(std::string const& path)
{
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0)
        return errno == ENOENT || errno == ENOTDIR;
    return S_ISDIR(status.st_mode);
}
