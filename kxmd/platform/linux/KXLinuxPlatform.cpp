#include "kxmd/platform/KXPlatformModulePrivate.h"
#include "kxmd/platform/KXSHA1TextDigestPrivate.h"
#include "kxmd/platform/linux/KXLinuxPlatformPrivate.h"
#include "kxmd/platform/linux/icons/KXLinuxIconProviderPrivate.h"
#include "kxmd/platform/linux/render/KXRenderMovieLoaderPrivate.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"
#include "kxmd/platform/linux/system/KXGLibFileManagerPrivate.h"
#include "kxmd/platform/linux/system/KXGLibMainQueuePrivate.h"
#include "kxmd/platform/linux/system/KXGLibMemoryPressurePrivate.h"
#include "kxmd/platform/linux/system/KXGLibTemporaryFoldersPrivate.h"
#include "kxmd/platform/linux/system/KXLinuxTaskRunnerPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXLinuxThumbnailServicePrivate.h"
#include "kxmd/version.h"

std::shared_ptr<KXRenderServer const> const& renderServerForPictures()
{
    static auto const server
        = std::make_shared<KXRenderServer const>(KXRenderServer::installedProgram(KXMD_RENDER));
    return server;
}

std::shared_ptr<KXRenderServer const> const& renderServerForRarePictures()
{
    static auto const server = std::make_shared<KXRenderServer const>(
        KXRenderServer::installedProgram(KXMD_RENDER_RARE));
    return server;
}

std::shared_ptr<KXRenderServer const> const& renderServerForMovies()
{
    static auto const server = std::make_shared<KXRenderServer const>(
        KXRenderServer::installedProgram(KXMD_RENDER_MOVIES));
    return server;
}

namespace {

KXPlatform::Ref newPlatform(KXDecodingLimits const& limits)
{
    auto const pictureLoader = std::make_shared<KXRenderPictureLoader const>(
        KXRenderPictureLoader::Servers { .pictures = renderServerForPictures(),
            .rarePictures = renderServerForRarePictures(),
            .movies = renderServerForMovies() },
        KXRenderLimits::forPictures(limits));
    auto const movieLoader = std::make_shared<KXRenderMovieLoader const>(
        renderServerForMovies(), KXRenderLimits::forMovies(limits));
    auto const temporaryFolders = std::make_shared<KXGLibTemporaryFolders const>();
    return std::make_shared<KXPlatform const>(KXPlatform {
        .pictureLoader = pictureLoader,
        .movieLoader = movieLoader,
        .thumbnailService
        = std::make_shared<KXLinuxThumbnailService const>(KXLinuxThumbnailService::Parts {
            .pictureLoader = pictureLoader,
            .movieLoader = movieLoader,
            .pictures = pictureLoader,
            .documentThumbnailer = std::make_shared<KXDocumentThumbnailer const>(
                KXDocumentThumbnailer::Places::ofThisMachine(), pictureLoader, temporaryFolders),
        }),
        .iconProvider = std::make_shared<KXLinuxIconProvider const>(
            KXIconThemes::Places::ofThisMachine(), pictureLoader),
        .mainQueue = std::make_shared<KXGLibMainQueue>(),
        .textDigest = std::make_shared<KXSHA1TextDigest const>(),
        .temporaryFolders = temporaryFolders,
        .fileManager = std::make_shared<KXGLibFileManager const>(),
        .taskRunner = KXLinuxTaskRunner::Converter::ofThisMachine().taskRunner(),
        .memoryPressure = std::make_shared<KXGLibMemoryPressure const>(),
    });
}

}

KXPlatformModule const KXPlatformModuleOfThisMachine {
    .version = KXMD_VERSION, .newPlatform = newPlatform, .newReport = newMachineReport
};
