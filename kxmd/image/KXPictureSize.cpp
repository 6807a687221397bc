#include "kxmd/image/KXPictureSizePrivate.h"

#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/image/KXPictureSizeWalksPrivate.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace {

KXPictureFormat formatOf(KXPictureReader picture)
{
    std::array<std::uint8_t, lengthOfPictureHead> bytes;
    std::size_t const count = static_cast<std::size_t>(
        std::min<std::uint64_t>(bytes.size(), picture.remainingLength()));
    if (!picture.readBytesTo(std::span(bytes).first(count)))
        return KXPictureFormat::unknown;
    return formatOfPictureWithHead({ reinterpret_cast<char const*>(bytes.data()), count });
}

}

std::optional<KXSize> sizeOfEncodedPictureInData(KXAbstractData& data, std::uint64_t length)
{
    if (length > data.remainingLength())
        return std::nullopt;
    KXPictureReader const picture(data, length);
    switch (formatOf(picture)) {
    case KXPictureFormat::jpeg:
        return sizeOfJPEG(picture);
    case KXPictureFormat::png:
        return sizeOfPNG(picture);
    case KXPictureFormat::gif:
        return sizeOfGIF(picture);
    case KXPictureFormat::bmp:
        return sizeOfBMP(picture);
    case KXPictureFormat::tiff:
        return sizeOfTIFF(picture);
    case KXPictureFormat::webp:
        return sizeOfWebP(picture);
    case KXPictureFormat::heif:
        return sizeOfHEIF(picture);
    case KXPictureFormat::heifSequence: // Covers are none.
    case KXPictureFormat::icon:
    case KXPictureFormat::uncommon:
    case KXPictureFormat::unknown:
        break;
    }
    return std::nullopt;
}
