#include "kxmd/c/KXCImagePrivate.h"

#include "kxmd/c/KXCBytesPrivate.h"
#include "kxmd/c/KXCErrorPrivate.h"
#include "kxmd/platform/KXMachineReport.h"
#include "kxmd/platform/KXPlatform.h"

#include <array>
#include <atomic>

namespace {

bool isThere(KXMachineReport const& report, KXCDecoder decoder)
{
    switch (decoder) {
    case KXCDecoder::pictures:
        return report.pictures.isThere;
    case KXCDecoder::movies:
        return report.movies.isThere;
    case KXCDecoder::converter:
        break;
    }
    return !report.audioConverter.empty();
}

/// Whether this machine has it. Once it was there, nobody looks again: that costs as much as
/// decoding a picture.
bool isThere(KXCDecoder decoder)
{
    static std::array<std::atomic<bool>, 3> known {};
    auto& isKnown = known[static_cast<std::size_t>(decoder)];
    if (!isKnown)
        isKnown = isThere(KXMachineReport::reportOfThisMachine(), decoder);
    return isKnown;
}

}

void KXCFailWithout(KXCDecoder decoder, kxmd_error_code code, std::string message)
{
    if (isThere(decoder))
        throw KXCFailure(code, std::move(message));
    throw KXCFailure(KXMD_ERROR_NO_DECODER, "there is no program on this machine that does it");
}

void KXCRequireFormat(kxmd_picture_format format)
{
    KXCRequire(
        format == KXMD_PICTURE_PNG || format == KXMD_PICTURE_JPEG, "there is no such format");
}

KXImage::Ref KXCDecodedPicture(KXData const& file)
{
    auto const reader = KXAbstractData::abstractDataWithData(file);
    auto image = KXPlatform::shared()->pictureLoader->imageInData(*reader, reader->length(), {});
    if (!image)
        KXCFailWithout(
            KXCDecoder::pictures, KXMD_ERROR_NOT_MEDIA, "is not a picture that can be read");
    return image;
}

KXData KXCEncodedPicture(KXImage const& image, kxmd_picture_format format)
{
    auto const& loader = *KXPlatform::shared()->pictureLoader;
    KXData file = format == KXMD_PICTURE_JPEG ? loader.jpgRepresentation(image)
                                              : loader.pngRepresentation(image);
    if (!file.length())
        KXCFailWithout(
            KXCDecoder::pictures, KXMD_ERROR_NOT_POSSIBLE, "the picture cannot be encoded");
    return file;
}

kxmd_image* kxmd_image_decode(void const* bytes, size_t length, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(bytes && length, "there is no picture");
        return KXCNew<kxmd_image>(KXCDecodedPicture(KXCCopyOfBytes(bytes, length)));
    });
}

kxmd_bytes* kxmd_image_encode(
    kxmd_image const* image, kxmd_picture_format format, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(image, "there is no picture");
        KXCRequireFormat(format);
        return KXCNew<kxmd_bytes>(KXCEncodedPicture(*image->image, format));
    });
}

uint32_t kxmd_image_get_width(kxmd_image const* image) noexcept
{
    return image ? static_cast<std::uint32_t>(image->image->pixelWidth()) : 0;
}

uint32_t kxmd_image_get_height(kxmd_image const* image) noexcept
{
    return image ? static_cast<std::uint32_t>(image->image->pixelHeight()) : 0;
}

size_t kxmd_image_get_stride(kxmd_image const* image) noexcept
{
    return image ? image->image->pixelWidth() * KXImage::bytesPerPixel : 0;
}

uint8_t const* kxmd_image_get_pixels(kxmd_image const* image) noexcept
{
    return image ? image->image->pixels().data() : nullptr;
}

void kxmd_image_free(kxmd_image* image) noexcept { delete image; }
