#include "kxmd/image/KXPictureSizePrivate.h"

#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/image/KXPictureSizeWalksPrivate.h"

std::optional<KXSize> sizeOfEncodedPictureInData(KXAbstractData& data, std::uint64_t length)
{
    if (length > data.remainingLength())
        return std::nullopt;
    KXPictureReader const picture(data, length);
    switch (formatOfPictureWithHead(headOfPicture(data, length))) {
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
