#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXImage.h"

#include <cstdint>

/// What a picture library does for us. Safe to call from several threads. A lack of memory leaves
/// it as `std::bad_alloc`.
class KX_EXPORT KXPictureLoader {
public:
    virtual ~KXPictureLoader();

    /// `imageInData:length:wantedSize:` The picture in the next `length` bytes of `data`, upright.
    ///
    /// Null when they are no picture that the library knows, or one too large to decode. The
    /// picture may come smaller than it is stored, but neither side smaller than that of
    /// `wantedSize`; an empty `wantedSize` asks for all of it.
    [[nodiscard]] virtual KXImage::Ref imageInData(
        KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const = 0;

    /// `jpgRepresentation` The picture as a JPEG file, over white where it is transparent; empty
    /// when it cannot be encoded. One fixed quality: the same picture always gives the same bytes.
    [[nodiscard]] virtual KXData jpgRepresentation(KXImage const& image) const = 0;

    /// `pngRepresentation` The picture as a PNG file; empty when it cannot be encoded.
    [[nodiscard]] virtual KXData pngRepresentation(KXImage const& image) const = 0;
};
