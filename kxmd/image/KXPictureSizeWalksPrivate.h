#pragma once

#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXPictureReaderPrivate.h"

#include <cstdint>
#include <optional>

// The walks over the headers of each format, from the picture's first byte, which has the format's
// signature. Absent when the headers are cut off or damaged, or the budget is spent.

std::optional<KXSize> sizeOfJPEG(KXPictureReader picture);
std::optional<KXSize> sizeOfPNG(KXPictureReader picture);
std::optional<KXSize> sizeOfGIF(KXPictureReader picture);
std::optional<KXSize> sizeOfBMP(KXPictureReader picture);
std::optional<KXSize> sizeOfTIFF(KXPictureReader picture);
std::optional<KXSize> sizeOfWebP(KXPictureReader picture);
std::optional<KXSize> sizeOfHEIF(KXPictureReader picture);

/// The size with these sides in pixels, unless one is 0 or too long for any picture. ISO/IEC 15948,
/// 7.1, draws that line for PNG; where other formats have room for more, it is damage.
inline std::optional<KXSize> sizeOfPixels(std::uint32_t width, std::uint32_t height)
{
    constexpr std::uint32_t longest = 0x7FFFFFFF;
    if (!width || !height || width > longest || height > longest)
        return std::nullopt;
    return KXSize { static_cast<double>(width), static_cast<double>(height) };
}
