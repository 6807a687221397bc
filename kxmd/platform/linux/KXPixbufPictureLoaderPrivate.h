#pragma once

#include "kxmd/platform/KXPictureLoader.h"

/// Pictures by gdk-pixbuf, with whatever loaders the desktop has installed for it.
class KXPixbufPictureLoader final : public KXPictureLoader {
public:
    [[nodiscard]] std::optional<KXSize> sizeOfPictureInData(
        KXAbstractData& data, std::uint64_t length) const override;
};
