#pragma once

#include "kxmd/host/KXDCFileProcessor.h"
#include "kxmd/thumbnails/KXMDThumbnailController.h"

/// Gives MP3 and MP4 files their thumbnail, of 256 by 256, as album cover.
class KX_EXPORT KXMDFileProcessorAddAlbumCover final : public KXDCFileProcessor {
public:
    /// `init` Takes thumbnails from the process's shared controller.
    KXMDFileProcessorAddAlbumCover();
    /// `initWithThumbnailController:` Takes thumbnails from `controller`; null stands for the
    /// process's shared one.
    explicit KXMDFileProcessorAddAlbumCover(KXMDThumbnailController::Ref const& controller);

    /// `processedFileDataForFileProxy:fileData:` Replaces the covers in the buffer of `fileData`,
    /// which must be a mutable reader, whether or not they are valid.
    ///
    /// Returns a new reader over that buffer. Returns `fileData` when the file cannot take a cover
    /// or has no thumbnail, and when the edit fails, which may have removed some covers.
    [[nodiscard]] KXAbstractData::Ref processedFileDataForFileProxy(
        KXDCFileProxy const& fileProxy, KXAbstractData::Ref fileData) const override;

    /// `processedFilesizeForFileProxy:filesize:` By the metadata that the host keeps under
    /// "FileMetaObject". A file with a valid cover is told to keep its size, although its cover is
    /// replaced: that is how hosts plan for it.
    [[nodiscard]] std::uint64_t processedFilesizeForFileProxy(
        KXDCFileProxy const& fileProxy, std::uint64_t filesize) const override;

private:
    KXMDThumbnailController::Ref const _controller;
};
