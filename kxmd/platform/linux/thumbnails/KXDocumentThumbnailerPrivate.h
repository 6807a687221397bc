#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXPictureLoader.h"
#include "kxmd/platform/KXTemporaryFolders.h"
#include "kxmd/platform/linux/thumbnails/KXDesktopThumbnailersPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXSharedThumbnailFolderPrivate.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Thumbnails of what we cannot show ourselves, by what the desktop has for it. Safe to call from
/// several threads.
class KX_EXPORT_FOR_TESTS KXDocumentThumbnailer {
public:
    /// Where the desktop keeps things.
    struct Places {
        std::string pdfProgram; ///< `pdftoppm`; empty when it is not installed.
        std::string sharedThumbnails;
        std::vector<std::string> thumbnailers;
        std::string launcher {}; ///< `kxmd-confined`, which runs the others; empty for none.

        static Places ofThisMachine();
    };

    KXDocumentThumbnailer(Places places, std::shared_ptr<KXPictureLoader const> pictureLoader,
        std::shared_ptr<KXTemporaryFolders const> temporaryFolders);

    /// The first page of the PDF file at the absolute `path`; null when it cannot be shown.
    KXImage::Ref imageOfPDF(std::string const& path, KXSize maximumSize) const;

    /// A thumbnail of the file at the absolute `path` that is there already, or else by the
    /// program that the desktop has for its content type. It may be larger than `maximumSize`.
    KXImage::Ref imageOfDocument(
        std::string const& path, std::string const& contentType, KXSize maximumSize) const;

private:
    KXImage::Ref imageByThumbnailer(
        std::string const& path, std::string const& contentType, KXSize maximumSize) const;
    KXImage::Ref imageInFile(std::string const& path, KXSize maximumSize) const;

    std::optional<KXData> outputOf(
        std::vector<std::string> command, std::string const& path, std::string const& folder) const;

    std::string const _launcher;
    std::string const _pdfProgram;
    KXSharedThumbnailFolder const _sharedThumbnails;
    KXDesktopThumbnailers const _thumbnailers;
    std::shared_ptr<KXPictureLoader const> const _pictureLoader;
    std::shared_ptr<KXTemporaryFolders const> const _temporaryFolders;
};
