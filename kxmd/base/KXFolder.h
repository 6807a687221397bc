#pragma once

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <ftw.h>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <vector>

// The standard library's own operations end the program where memory runs out.

/// The names of what a folder holds, in no order, without "." and "..". With an error, those that
/// came before it; for a lack of memory `std::bad_alloc` leaves this.
inline std::vector<std::string> KXNamesInFolder(std::string const& path, std::error_code& error)
{
    struct Close {
        void operator()(DIR* folder) const { ::closedir(folder); }
    };
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

/// Removes a folder with all that is in it, or a file; whether it is gone. Links are not followed.
inline bool KXRemoveFolder(std::string const& path)
{
    constexpr int mostOpenFolders = 16; // Of deeper ones the path is searched anew.
    auto const remove = [](char const* entry, struct stat const*, int, FTW*) {
        std::remove(entry); // What cannot be removed keeps its folder from it, and that tells.
        return 0;
    };
    ::nftw(path.c_str(), remove, mostOpenFolders, FTW_DEPTH | FTW_PHYS);
    struct stat status;
    return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}
