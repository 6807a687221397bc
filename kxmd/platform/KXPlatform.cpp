#include "kxmd/platform/KXPlatform.h"

#include "kxmd/base/KXGuarded.h"

#include <utility>

KXPictureLoader::~KXPictureLoader() = default;
KXMovie::~KXMovie() = default;
KXMovieLoader::~KXMovieLoader() = default;
KXTextDigest::~KXTextDigest() = default;
KXThumbnailService::~KXThumbnailService() = default;
KXIconProvider::~KXIconProvider() = default;
KXTemporaryFolders::~KXTemporaryFolders() = default;
KXFileManager::~KXFileManager() = default;
KXTaskRunner::~KXTaskRunner() = default;
KXMemoryPressure::~KXMemoryPressure() = default;

namespace {

KXGuarded<KXPlatform::Ref>& sharedPlatform()
{
    // Never destroyed: queues may still work while the process exits.
    static auto& platform = *new KXGuarded<KXPlatform::Ref>();
    return platform;
}

}

KXPlatform::Ref KXPlatform::shared()
{
    auto platform = sharedPlatform().lock();
    if (!*platform)
        *platform = platformOfThisMachine();
    return *platform;
}

void KXPlatform::setShared(Ref platform) { sharedPlatform().store(std::move(platform)); }
