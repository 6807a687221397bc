#include "kxmd/processors/KXMDFileProcessorAddAlbumCover.h"
#include "kxmd/base/KXMutableAbstractData.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/core/KXMDFileMeta.h"

#include <utility>

namespace {

constexpr KXSize coverSize { 256, 256 };

std::shared_ptr<KXMDFileMeta> metaObjectOfFile(KXDCFile::Ref const& file)
{
    auto const value = file ? file->metadataForKey("FileMetaObject") : KXDCValue();
    auto const* const object = std::get_if<std::shared_ptr<KXObject>>(&value);
    return object ? std::dynamic_pointer_cast<KXMDFileMeta>(*object) : nullptr;
}

}

KXMDFileProcessorAddAlbumCover::KXMDFileProcessorAddAlbumCover()
    : KXMDFileProcessorAddAlbumCover(KXMDThumbnailController::sharedController())
{
}

KXMDFileProcessorAddAlbumCover::KXMDFileProcessorAddAlbumCover(
    KXMDThumbnailController::Ref const& controller)
    : _controller(controller ? controller : KXMDThumbnailController::sharedController())
{
}

KXAbstractData::Ref KXMDFileProcessorAddAlbumCover::processedFileDataForFileProxy(
    KXDCFileProxy const& fileProxy, KXAbstractData::Ref fileData) const
{
    auto const meta = fileData ? KXMDFileMeta::fileMetaWithAbstractData(*fileData) : nullptr;
    if (!meta || !meta->canInsertAlbumCover()) {
        KXLog("Metadata",
            "KXMDFileProcessorAddAlbumCover->processedFileDataForFile: Not possible to insert "
            "album cover");
        return fileData;
    }
    auto const file = fileProxy.file();
    auto const thumbnail = file ? _controller->thumbnailForFile(*file, coverSize) : nullptr;
    auto const mutableReader = std::dynamic_pointer_cast<KXMutableAbstractData>(fileData);
    if (!thumbnail || !mutableReader)
        return fileData;
    auto const& data = mutableReader->mutableData();
    if (!meta->addEncodedAlbumCoverToData(_controller->jpgRepresentationOfImage(thumbnail), data))
        return fileData;
    return KXMutableAbstractData::abstractDataWithData(data);
}

std::uint64_t KXMDFileProcessorAddAlbumCover::processedFilesizeForFileProxy(
    KXDCFileProxy const& fileProxy, std::uint64_t filesize) const
{
    auto const file = fileProxy.file();
    auto const meta = metaObjectOfFile(file);
    if (!meta || !meta->canInsertAlbumCover())
        return filesize;
    auto const thumbnail = _controller->thumbnailForFile(*file, coverSize);
    if (!thumbnail)
        return filesize;
    return meta->filesizeWithValidEncodedAlbumCover(
        _controller->jpgRepresentationOfImage(thumbnail));
}
