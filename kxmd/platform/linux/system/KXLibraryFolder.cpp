#include "kxmd/platform/linux/system/KXLibraryFolderPrivate.h"

#include <dlfcn.h>

std::string pathBesideLibrary(std::string_view relativePath)
{
    static int const ofThisLibrary = 0;
    Dl_info library {};
    if (!dladdr(&ofThisLibrary, &library) || !library.dli_fname)
        return {};
    std::string const path = library.dli_fname;
    std::size_t const slash = path.rfind('/');
    std::string const folder = slash == std::string::npos ? "." : path.substr(0, slash);
    return folder + '/' + std::string(relativePath);
}
