#include "kxmd/platform/linux/pictures/KXFFmpegMovieLoaderPrivate.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegModulePrivate.h"
#include "kxmd/platform/linux/system/KXLibraryFolderPrivate.h"

#include <atomic>
#include <dlfcn.h>
#include <string>

namespace {

struct Module {
    decltype(&kxmdMovieWithData) movieWithData;
    std::string error;
};

Module openedModule()
{
    // Beside the library: a path that the environment can change would let it be replaced.
    std::string const path = pathBesideLibrary(KXMD_MOVIE_MODULE);
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); // Never closed.
    void* const entry = module ? dlsym(module, "kxmdMovieWithData") : nullptr;
    char const* const error = entry ? nullptr : dlerror();
    return { reinterpret_cast<decltype(&kxmdMovieWithData)>(entry), error ? error : "" };
}

}

std::unique_ptr<KXMovie> KXFFmpegMovieLoader::movieWithData(KXAbstractData& data) const
{
    static Module const module = openedModule();
    if (module.movieWithData)
        return std::unique_ptr<KXMovie>(module.movieWithData(data));
    // Not while the module is opened: a log sink may itself ask for a movie.
    static std::atomic<bool> isLogged { false };
    if (!isLogged.exchange(true))
        KXLog("Metadata", "Movies have no pictures: %s", module.error.c_str());
    return nullptr;
}
