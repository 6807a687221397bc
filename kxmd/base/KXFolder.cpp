#include "kxmd/base/KXFolder.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <ftw.h>
#include <memory>
#include <new>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Close {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

int removeEntry(char const* path, struct stat const*, int, FTW*)
{
    std::remove(path); // What cannot be removed keeps its folder from it, and that tells.
    return 0;
}

}

std::vector<std::string> KXNamesInFolder(std::string const& path, std::error_code& error)
{
    std::vector<std::string> names;
    std::unique_ptr<DIR, Close> const folder(::opendir(path.c_str()));
    while (folder) {
        errno = 0;
        dirent const* const entry = ::readdir(folder.get());
        if (!entry)
            break;
        std::string_view const name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    if (errno == ENOMEM)
        throw std::bad_alloc();
    error.assign(errno, std::generic_category());
    return names;
}

bool KXRemoveFolder(std::string const& path)
{
    if (::rmdir(path.c_str()) == 0) // An empty one, for which a walk would ask for memory.
        return true;
    constexpr int mostOpenFolders = 16; // Of deeper ones the path is searched anew.
    ::nftw(path.c_str(), removeEntry, mostOpenFolders, FTW_DEPTH | FTW_PHYS);
    struct stat status;
    return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}
