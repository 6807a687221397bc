#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXImage.h"

#include <string>

/// Renders files: pictures, movies, music with a cover, documents. Whatever of an untrusted file is
/// decoded goes through here, so that it can be moved out of the process. Safe to call from several
/// threads.
class KX_EXPORT KXThumbnailService {
public:
    virtual ~KXThumbnailService();

    /// `imageForPath:maximumSize:` A picture of the file at `path`, upright, with its own
    /// proportions.
    ///
    /// No larger than `maximumSize` in points and never enlarged; only drawings (SVG), which have
    /// no pixels of their own, are made as large as that, up to 4096 pixels a side. Null for what
    /// cannot be shown.
    [[nodiscard]] virtual KXImage::Ref imageForPath(
        std::string const& path, KXSize maximumSize) const = 0;

    /// `squareForPath:size:` The largest centred square of the picture of the file at `path`,
    /// stretched to exactly `size`. Null for what cannot be shown.
    ///
    /// Unless it is overridden, it is made from what `imageForPath` gives for twice the size.
    [[nodiscard]] virtual KXImage::Ref squareForPath(std::string const& path, KXSize size) const;
};
