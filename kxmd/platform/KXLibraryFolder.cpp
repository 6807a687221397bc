#include "kxmd/platform/KXLibraryFolderPrivate.h"

#include <dlfcn.h>
#include <filesystem>
#include <system_error>

namespace {

/// Empty when it is not known.
std::string absoluteFolderOfLibrary()
{
    static int const ofThisLibrary = 0;
    Dl_info library {};
    dladdr(&ofThisLibrary, &library); // Leaves it empty when it fails.
    if (!library.dli_fname)
        return {};
    std::error_code error;
    auto const path = std::filesystem::absolute(library.dli_fname, error);
    return error ? std::string() : path.parent_path().string();
}

// Found when the library is loaded: where it was searched for in a relative folder, that is
// relative to the one of this moment, and the host may go to another later.
std::string const folderOfLibrary = absoluteFolderOfLibrary();

}

std::string pathBesideLibrary(std::string_view relativePath)
{
    return folderOfLibrary.empty() ? std::string()
                                   : folderOfLibrary + '/' + std::string(relativePath);
}
