#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXQueue.h"
#include "kxmd/platform/KXDecodingLimits.h"
#include "kxmd/platform/KXFileManager.h"
#include "kxmd/platform/KXIconProvider.h"
#include "kxmd/platform/KXMemoryPressure.h"
#include "kxmd/platform/KXMovieLoader.h"
#include "kxmd/platform/KXPictureLoader.h"
#include "kxmd/platform/KXTaskRunner.h"
#include "kxmd/platform/KXTemporaryFolders.h"
#include "kxmd/platform/KXTextDigest.h"
#include "kxmd/platform/KXThumbnailService.h"

#include <memory>

/// Everything that the logic needs from the machine. No member is null.
struct KX_EXPORT KXPlatform {
    /// A shared platform, which nobody changes any more.
    using Ref = std::shared_ptr<KXPlatform const>;

    std::shared_ptr<KXPictureLoader const> pictureLoader; ///< Decodes and encodes pictures.
    std::shared_ptr<KXMovieLoader const> movieLoader; ///< Opens movies and music.
    std::shared_ptr<KXThumbnailService const> thumbnailService; ///< Shows any file.
    std::shared_ptr<KXIconProvider const> iconProvider; ///< Shows types of files.
    std::shared_ptr<KXQueue> mainQueue; ///< Where handlers are called that touch a user interface.
    std::shared_ptr<KXTextDigest const> textDigest; ///< Names what is cached.
    std::shared_ptr<KXTemporaryFolders const> temporaryFolders; ///< For results of processors.
    std::shared_ptr<KXFileManager const> fileManager; ///< Reads and replaces whole files.
    std::shared_ptr<KXTaskRunner const> taskRunner; ///< Starts the audio converter.
    std::shared_ptr<KXMemoryPressure const> memoryPressure; ///< Empties caches.

    /// `shared` The process-wide platform: the one that was set, or else this machine's own, made
    /// on first use.
    [[nodiscard]] static Ref shared();

    /// `setShared:` Makes `platform` the process-wide one; null brings back the machine's own. Call
    /// it before the library is used: objects keep what they got.
    static void setShared(Ref platform);

    /// `platformOfThisMachine:` A new platform over this machine's services, which decodes files
    /// within `limits`.
    ///
    /// The first call loads the module with these services, which stays loaded; a host that gives
    /// up rights over files makes it before. Where that fails, a log line says why, and the
    /// platform's services find, show and write nothing; its main queue has a thread of its own.
    [[nodiscard]] static Ref platformOfThisMachine(KXDecodingLimits const& limits = {});
};
