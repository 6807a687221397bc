#include "kxmd/platform/linux/KXFFmpegMovieLoaderPrivate.h"

#include "kxmd/host/KXLog.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegModulePrivate.h"

#include <dlfcn.h>
#include <string>

namespace {

using MovieWithData = decltype(&kxmdMovieWithData);

/// The module's path. It lies beside the library wherever both are installed; a search path that
/// the environment can change would let it be replaced.
std::string modulePath()
{
    static int const ofThisLibrary = 0;
    Dl_info library {};
    if (!dladdr(&ofThisLibrary, &library) || !library.dli_fname)
        return {};
    std::string const path = library.dli_fname;
    std::size_t const slash = path.rfind('/');
    return (slash == std::string::npos ? "." : path.substr(0, slash)) + "/" KXMD_MOVIE_MODULE;
}

MovieWithData openModule()
{
    std::string const path = modulePath();
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
