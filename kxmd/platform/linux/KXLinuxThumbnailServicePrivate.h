#pragma once

#include "kxmd/platform/KXMovieLoader.h"
#include "kxmd/platform/KXPictureLoader.h"
#include "kxmd/platform/KXThumbnailService.h"

#include <memory>

/// Thumbnails of pictures, by their content and not by their name.
// FIXME: movies, music with a cover and documents have no picture yet.
class KXLinuxThumbnailService final : public KXThumbnailService {
public:
    KXLinuxThumbnailService(std::shared_ptr<KXPictureLoader const> pictureLoader,
        std::shared_ptr<KXMovieLoader const> movieLoader);

    [[nodiscard]] KXImage::Ref imageForPath(
        std::string const& path, KXSize maximumSize) const override;

private:
    std::shared_ptr<KXPictureLoader const> const _pictureLoader;
    std::shared_ptr<KXMovieLoader const> const _movieLoader;
};
