#pragma once

#include "kxmd/platform/KXPictureLoader.h"

/// Pictures by gdk-pixbuf, with whatever loaders the desktop has installed for it.
class KXPixbufPictureLoader final : public KXPictureLoader {
public:
    [[nodiscard]] KXImage::Ref imageInData(
        KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const override;
    [[nodiscard]] KXData jpgRepresentation(KXImage const& image) const override;
    [[nodiscard]] KXData pngRepresentation(KXImage const& image) const override;
};
