#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/image/KXPictureSizeWalksPrivate.h"

#include <array>
#include <string_view>

/// The size of the logical screen (GIF89a, 18), on which all frames lie.
std::optional<KXSize> sizeOfGIF(KXPictureReader picture)
{
    std::array<std::uint8_t, 6> bytes;
    if (!picture.readBytesTo(bytes)
        || !isVersionOfGIF({ reinterpret_cast<char const*>(bytes.data()), bytes.size() }))
        return std::nullopt;
    constexpr std::uint64_t colourFields = 3; // Packed fields, background colour, aspect ratio.
    std::uint16_t width, height;
    if (!picture.readUInt16To(width, KXSwap::no) || !picture.readUInt16To(height, KXSwap::no)
        || !picture.skipBytes(colourFields))
        return std::nullopt;
    return sizeOfPixels(width, height);
}
