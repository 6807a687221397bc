#include "kxmd/platform/KXPlatform.h"

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
KXIconProvider::~KXIconProvider() = default;
KXTemporaryFolders::~KXTemporaryFolders() = default;
KXFileManager::~KXFileManager() = default;
KXTaskRunner::~KXTaskRunner() = default;
KXMemoryPressure::~KXMemoryPressure() = default;
