#include "CoverPicture.h"

#include <cstdint>
#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/image/KXPictureFormatPrivate.h>
#include <kxmd/image/KXPictureSizePrivate.h>
#include <kxmd/mp4/atoms/KXMP4Atom.h>
#include <utility>

namespace {

// Nobody's cover has more, and all of it is held in memory.
constexpr std::uint64_t mostBytes = std::uint64_t { 64 } << 20;

/// The codec of the picture that begins with the next bytes; none for one that MP4 has no cover of.
/// Leaves the reader where it is.
AVCodecID codecOfNextBytes(KXAbstractData& data)
{
    switch (formatOfPictureWithHead(headOfPicture(data, data.remainingLength()))) {
    case KXPictureFormat::jpeg:
        return AV_CODEC_ID_MJPEG;
    case KXPictureFormat::png:
        return AV_CODEC_ID_PNG;
    case KXPictureFormat::bmp:
        return AV_CODEC_ID_BMP;
    default:
        return AV_CODEC_ID_NONE;
    }
}

/// The picture in the next `length` bytes.
std::optional<CoverPicture> pictureIn(KXAbstractData& data, std::uint64_t length)
{
    auto const codec = codecOfNextBytes(data);
    auto const start = data.offset();
    if (codec == AV_CODEC_ID_NONE || length > mostBytes || length > data.remainingLength())
        return std::nullopt;
    auto const size = sizeOfEncodedPictureInData(data, length);
    if (!size)
        return std::nullopt;
    AVPacketRef content(allocated(av_packet_alloc()));
    checked(av_new_packet(content.get(), static_cast<int>(length)), "has too large a cover");
    content->flags |= AV_PKT_FLAG_KEY;
    data.setOffset(start);
    if (!data.readBytesTo(content->data, length))
        return std::nullopt;
    return CoverPicture { codec, static_cast<int>(size->width), static_cast<int>(size->height),
        std::move(content) };
}

/// The picture of the first "data" atom in `cover`: size, type, type indicator, locale, picture.
std::optional<CoverPicture> pictureOfAtom(KXMP4Atom const& cover, KXAbstractData& data)
{
    constexpr std::uint64_t atomHeader = 8, header = 16;
    data.setOffset(cover.offset() + atomHeader);
    std::uint32_t size;
    std::optional<std::string> type;
    if (!data.readUInt32To(size, KXSwap::yes) || !data.readStringTo(type, 4, KXStringEncodingLatin1)
        || *type != "data")
        return std::nullopt;
    if (size <= header || cover.size() < atomHeader || size > cover.size() - atomHeader)
        return std::nullopt;
    data.skipBytes(header - atomHeader); // The indicator is what cannot be relied on.
    return pictureIn(data, size - header);
}

}

std::optional<CoverPicture> coverOfMP4File(KXAbstractData& data)
{
    data.setOffset(0);
    if (KXMDFileMeta::metaTypeForData(data) != KXMDMetaTypeMP4)
        return std::nullopt;
    auto const root = KXMP4Atom::atomWithAbstractData(data);
    for (auto const& cover : root->allAtomsWithPath("moov/udta/meta/ilst/covr")) {
        if (auto picture = pictureOfAtom(*cover, data))
            return picture;
    }
    return std::nullopt;
}
