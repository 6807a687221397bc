#include "kxmd/core/KXMDFileMetaController.h"

#include "kxmd/base/KXLog.h"

#include <utility>

namespace {

/// What `controller` finds out about `file`. An empty object when that throws, for want of memory
/// or from the host's file object: on the queue's thread nobody would catch it, and the handler
/// waits.
KXMDFileMeta::Ref anyFileMetaForFile(
    KXMDFileMetaController const& controller, KXDCFile::Ref const& file)
{
    try {
        return file ? controller.fileMetaForFile(*file) : std::make_shared<KXMDFileMetaEmpty>();
    } catch (...) {
        KXLog("Metadata", "KXMDFileMetaController->a file could not be read");
        return std::make_shared<KXMDFileMetaEmpty>();
    }
}

}

KXMDFileMetaController::KXMDFileMetaController(KXMDFileMeta::PlatformRef platform)
    : _platform(std::move(platform))
    , _fileMetaQueue("org.kxmd.filemetacontroller")
{
}

KXMDFileMetaController::Ref KXMDFileMetaController::create() { return createWithPlatform(nullptr); }

KXMDFileMetaController::Ref KXMDFileMetaController::createWithPlatform(
    KXMDFileMeta::PlatformRef platform)
{
    return Ref(new KXMDFileMetaController(std::move(platform)));
}

KXMDFileMetaController::Ref const& KXMDFileMetaController::sharedController()
{
    // Never destroyed: its queue may still work while the process exits.
    static auto const& controller = *new Ref(create());
    return controller;
}

KXMDFileMeta::Ref KXMDFileMetaController::fileMetaForFile(KXDCFile const& file) const
{
    auto meta = KXMDFileMeta::fileMetaWithSourcePath(file.sourcePath());
    meta->setPlatform(_platform);
    return meta;
}

void KXMDFileMetaController::fileMetaForFile(KXDCFile::Ref file, Handler handler)
{
    _fileMetaQueue.async(
        [self = shared_from_this(), file = std::move(file), handler = std::move(handler)] {
            auto meta = anyFileMetaForFile(*self, file);
            if (handler)
                handler(std::move(meta));
        });
}

void KXMDFileMetaController::mergeFileMetaIntoFile(KXMDFileMeta const& meta, KXDCFile& file) const
{
    for (std::string_view const key : { KXMDMetadataKeyAlbum, KXMDMetadataKeyAlbumArtist,
             KXMDMetadataKeyArtist, KXMDMetadataKeyName }) {
        if (auto value = meta.metadataForKey(key))
            file.setMetadataForKey(std::move(*value), key);
    }
    if (auto name = meta.metadataForKey(KXMDMetadataKeyName))
        file.setName(std::move(*name));
}
