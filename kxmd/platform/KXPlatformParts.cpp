#include "kxmd/platform/KXPlatform.h"

#include "kxmd/image/KXImageFittingPrivate.h"

// Apart from the platform itself, for programs of ours that have parts and no platform.

KXPictureLoader::~KXPictureLoader() = default;
KXMovie::~KXMovie() = default;
KXMovieLoader::~KXMovieLoader() = default;
std::optional<KXMediaProbe> KXMovieLoader::mediaProbeWithData(KXAbstractData&) const
{
    return std::nullopt;
}
KXTextDigest::~KXTextDigest() = default;
KXThumbnailService::~KXThumbnailService() = default;
KXImage::Ref KXThumbnailService::squareForPath(std::string const& path, KXSize size) const
{
    return squareOfImage(imageForPath(path, { size.width * 2, size.height * 2 }), size);
}
KXIconProvider::~KXIconProvider() = default;
KXTemporaryFolders::~KXTemporaryFolders() = default;
KXFileManager::~KXFileManager() = default;
KXTaskRunner::~KXTaskRunner() = default;
KXMemoryPressure::~KXMemoryPressure() = default;
