#include "kxmd/platform/linux/pictures/KXFFmpegMovieLoaderPrivate.h"

#include "kxmd/host/KXLog.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegModulePrivate.h"
#include "kxmd/platform/linux/system/KXLibraryFolderPrivate.h"

#include <dlfcn.h>
#include <string>

namespace {

using MovieWithData = decltype(&kxmdMovieWithData);

MovieWithData openModule()
{
    // Beside the library: a path that the environment can change would let it be replaced.
    std::string const path = pathBesideLibrary(KXMD_MOVIE_MODULE);
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); // Never closed.
    void* const entry = module ? dlsym(module, "kxmdMovieWithData") : nullptr;
    if (!entry)
        KXLog("Metadata", "Movies have no pictures: %s", dlerror());
    return reinterpret_cast<MovieWithData>(entry);
}

}

std::unique_ptr<KXMovie> KXFFmpegMovieLoader::movieWithData(KXAbstractData& data) const
{
    static MovieWithData const moduleMovieWithData = openModule();
    return std::unique_ptr<KXMovie>(moduleMovieWithData ? moduleMovieWithData(data) : nullptr);
}
