#include "kxmd/platform/linux/KXFFmpegMovieLoaderPrivate.h"

std::unique_ptr<KXMovie> KXFFmpegMovieLoader::movieWithData(KXAbstractData&) const
{
    return nullptr;
}
