#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXMovieLoader.h"
#include "kxmd/platform/KXPictureLoader.h"
#include "kxmd/platform/KXThumbnailService.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXDocumentThumbnailerPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXFileContentPrivate.h"

#include <memory>
#include <optional>

/// Thumbnails by what a file holds and not by its name: pictures, movies, music with a cover, and
/// documents that the desktop has a program for.
class KX_EXPORT_FOR_TESTS KXLinuxThumbnailService final : public KXThumbnailService {
public:
    /// What shows each kind of file, `pictureLoader` the covers of music; no member is null.
    struct Parts {
        std::shared_ptr<KXPictureLoader const> pictureLoader;
        std::shared_ptr<KXMovieLoader const> movieLoader;
        std::shared_ptr<KXRenderPictureLoader const> pictures;
        std::shared_ptr<KXDocumentThumbnailer const> documentThumbnailer;
    };

    explicit KXLinuxThumbnailService(Parts parts);

    [[nodiscard]] KXImage::Ref imageForPath(
        std::string const& path, KXSize maximumSize) const override;
    [[nodiscard]] KXImage::Ref squareForPath(std::string const& path, KXSize size) const override;

private:
    struct File;
    static std::unique_ptr<File const> openFile(std::string const& path);
    KXImage::Ref imageOfFile(File const& file, KXSize maximumSize) const;
    std::optional<KXImage::Ref> imageByOurselves(File const& file, KXSize maximumSize) const;
    std::optional<KXImage::Ref> imageOfPicture(
        File const& file, KXSize size, KXRenderRequest::Shape shape) const;
    KXImage::Ref imageOfDrawing(File const& file, KXSize maximumSize) const;
    KXImage::Ref imageOfMovie(File const& file, KXSize maximumSize) const;
    KXImage::Ref imageByTheDesktop(File const& file, KXSize maximumSize) const;

    Parts const _parts;
};
