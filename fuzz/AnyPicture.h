#pragma once

#include "FuzzTarget.h"

#include "kxmd/image/KXImage.h"
#include "kxmd/platform/KXPictureLoader.h"

/// Takes everything for a picture whose bytes can all be read, so that decoders of others are not
/// asked.
class AnyPicture final : public KXPictureLoader {
public:
    KXImage::Ref imageInData(KXAbstractData& data, std::uint64_t length, KXSize) const override
    {
        KXMD_REQUIRE(length <= data.remainingLength());
        std::vector<std::uint8_t> bytes(length);
        bool const isRead = length && data.readBytesTo(bytes.data(), length);
        return isRead ? KXImage::imageWithSize({ 1, 1 }) : nullptr;
    }
    KXData jpgRepresentation(KXImage const& image) const override
    {
        return KXData(std::vector<std::uint8_t>(1 + image.pixels().size() % 100, 'j'));
    }
    KXData pngRepresentation(KXImage const&) const override { return {}; }
};
