#include "kxmd/platform/KXPlatform.h"
#include "kxmd/platform/linux/icons/KXLinuxIconProviderPrivate.h"
#include "kxmd/platform/linux/pictures/KXFFmpegMovieLoaderPrivate.h"
#include "kxmd/platform/linux/pictures/KXPixbufPictureLoaderPrivate.h"
#include "kxmd/platform/linux/system/KXGLibFileManagerPrivate.h"
#include "kxmd/platform/linux/system/KXGLibMainQueuePrivate.h"
#include "kxmd/platform/linux/system/KXGLibMemoryPressurePrivate.h"
#include "kxmd/platform/linux/system/KXGLibTemporaryFoldersPrivate.h"
#include "kxmd/platform/linux/system/KXGLibTextDigestPrivate.h"
#include "kxmd/platform/linux/system/KXLinuxTaskRunnerPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXLinuxThumbnailServicePrivate.h"

KXPlatform::Ref KXPlatform::platformOfThisMachine()
{
    auto const pictureLoader = std::make_shared<KXPixbufPictureLoader const>();
    auto const movieLoader = std::make_shared<KXFFmpegMovieLoader const>();
    auto const temporaryFolders = std::make_shared<KXGLibTemporaryFolders const>();
    return std::make_shared<KXPlatform const>(KXPlatform {
        .pictureLoader = pictureLoader,
        .movieLoader = movieLoader,
        .thumbnailService
        = std::make_shared<KXLinuxThumbnailService const>(KXLinuxThumbnailService::Parts {
            .pictureLoader = pictureLoader,
            .movieLoader = movieLoader,
            .pictureProcess
            = std::make_shared<KXPictureProcess const>(KXPictureProcess::installedProgram()),
            .documentThumbnailer = std::make_shared<KXDocumentThumbnailer const>(
                KXDocumentThumbnailer::Places::ofThisMachine(), pictureLoader, temporaryFolders),
        }),
        .iconProvider = std::make_shared<KXLinuxIconProvider const>(
            KXIconThemes::Places::ofThisMachine(), pictureLoader),
        .mainQueue = std::make_shared<KXGLibMainQueue>(),
        .textDigest = std::make_shared<KXGLibTextDigest const>(),
        .temporaryFolders = temporaryFolders,
        .fileManager = std::make_shared<KXGLibFileManager const>(),
        .taskRunner = KXLinuxTaskRunner::Converter::ofThisMachine().taskRunner(),
        .memoryPressure = std::make_shared<KXGLibMemoryPressure const>(),
    });
}
