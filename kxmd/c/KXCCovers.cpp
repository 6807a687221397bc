// The pictures that files hold.

#include "kxmd/c/KXCBytesPrivate.h"
#include "kxmd/c/KXCEditPrivate.h"
#include "kxmd/c/KXCEmbeddedCoverPrivate.h"
#include "kxmd/c/KXCErrorPrivate.h"
#include "kxmd/c/KXCFilePrivate.h"
#include "kxmd/c/KXCImagePrivate.h"
#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/platform/KXAbsentPlatformPrivate.h"
#include "kxmd/thumbnails/KXMDExifParser.h"

namespace {

/// Fails without a cover, or where nobody knows whether there is one.
void requireCover(kxmd_file const& file)
{
    KXCRequireWholeRead(*file.reader);
    if (!file.coverSize)
        throw KXCFailure(KXMD_ERROR_NOT_FOUND, "has no cover");
}

KXImage::Ref decodedCover(kxmd_file const& file)
{
    requireCover(file);
    auto image = file.meta->albumCoverFromData(*file.reader);
    KXCRequireWholeRead(*file.reader);
    if (!image)
        KXCFailWithout(
            KXCDecoder::pictures, KXMD_ERROR_NOT_FOUND, "has no cover that can be shown");
    return image;
}

KXData embeddedCover(kxmd_file const& file)
{
    requireCover(file);
    KXData bytes = KXCEmbeddedCover(*file.meta, *file.reader);
    KXCRequireWholeRead(*file.reader);
    if (!bytes.length())
        throw KXCFailure(KXMD_ERROR_NOT_FOUND, "has no cover that is a picture");
    return bytes;
}

/// The preview's bytes, unchanged.
KXData embeddedPreview(KXAbstractData& reader)
{
    KXMDExifParser parser(absentPlatform()); // It shall find the preview, not decode it.
    static_cast<void>(parser.parseAbstractData(reader));
    reader.setOffset(parser.thumbnailAddress());
    auto bytes = parser.thumbnailAddress() ? bytesOfPicture(reader, parser.thumbnailLength())
                                           : std::vector<std::uint8_t>();
    KXCRequireWholeRead(reader);
    if (bytes.empty())
        throw KXCFailure(KXMD_ERROR_NOT_FOUND, "has no preview");
    return KXData(std::move(bytes));
}

}

kxmd_image* kxmd_file_decode_cover(kxmd_file* file, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(file, "there is no file");
        return KXCNew<kxmd_image>(decodedCover(*file));
    });
}

kxmd_bytes* kxmd_file_extract_cover(kxmd_file* file, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(file, "there is no file");
        return KXCNew<kxmd_bytes>(embeddedCover(*file));
    });
}

kxmd_bytes* kxmd_file_extract_preview(kxmd_file* file, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(file, "there is no file");
        return KXCNew<kxmd_bytes>(embeddedPreview(*file->reader));
    });
}
