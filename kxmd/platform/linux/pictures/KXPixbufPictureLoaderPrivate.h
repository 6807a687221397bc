#pragma once

#include "kxmd/platform/KXPictureLoader.h"

#include <string>
#include <vector>

/// Pictures by gdk-pixbuf, with whatever loaders the desktop has installed for it.
class KXPixbufPictureLoader final : public KXPictureLoader {
public:
    [[nodiscard]] KXImage::Ref imageInData(
        KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const override;
    /// `drawingInData:length:size:` The drawing in the next `length` bytes of `data`, as large as
    /// fits in `size`, and larger than it says it is if need be.
    [[nodiscard]] KXImage::Ref drawingInData(
        KXAbstractData& data, std::uint64_t length, KXSize size) const;

    /// `formats` Short names of the formats that there are loaders for.
    [[nodiscard]] static std::vector<std::string> formats();

    [[nodiscard]] KXData jpgRepresentation(KXImage const& image) const override;
    [[nodiscard]] KXData pngRepresentation(KXImage const& image) const override;
};
