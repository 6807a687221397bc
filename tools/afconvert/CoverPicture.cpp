#include "CoverPicture.h"

#include <array>
#include <cstdint>
#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/mp4/KXMP4Atom.h>
#include <kxmd/platform/KXPictureSize.h>
#include <string_view>
#include <utility>

namespace {

// Nobody's cover has more, and all of it is held in memory.
constexpr std::uint64_t mostBytes = std::uint64_t { 64 } << 20;

struct Format {
    std::string_view signature;
    AVCodecID codec;
};

constexpr Format formats[] {
    { "\xFF\xD8\xFF", AV_CODEC_ID_MJPEG }, // ITU-T T.81, B.1.1.3: start of image, and a marker.
    { "\x89PNG\r\n\x1A\n", AV_CODEC_ID_PNG }, // ISO/IEC 15948, 5.2.
    { "BM", AV_CODEC_ID_BMP },
};

/// The format that the next bytes are in. Leaves the reader where it is.
AVCodecID formatOfNextBytes(KXAbstractData& data)
{
    std::array<char, 8> bytes {};
    auto const start = data.offset();
    auto const count
        = data.readBytesToMaxLength(reinterpret_cast<std::uint8_t*>(bytes.data()), bytes.size());
    data.setOffset(start);
    std::string_view const head(bytes.data(), static_cast<std::size_t>(count));
    for (auto const& [signature, codec] : formats) {
        if (head.starts_with(signature))
            return codec;
    }
    return AV_CODEC_ID_NONE;
}

/// The picture in the next `length` bytes.
std::optional<CoverPicture> pictureIn(KXAbstractData& data, std::uint64_t length)
{
    auto const format = formatOfNextBytes(data);
    auto const start = data.offset();
    if (format == AV_CODEC_ID_NONE || length > mostBytes || length > data.remainingLength())
        return std::nullopt;
    auto const size = sizeOfEncodedPictureInData(data, length);
    if (!size)
        return std::nullopt;
    PacketRef content(allocated(av_packet_alloc()));
    checked(av_new_packet(content.get(), static_cast<int>(length)), "has too large a cover");
    content->flags |= AV_PKT_FLAG_KEY;
    data.setOffset(start);
    if (!data.readBytesTo(content->data, length))
        return std::nullopt;
    return CoverPicture { format, static_cast<int>(size->width), static_cast<int>(size->height),
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

std::optional<CoverPicture> coverOfMP4File(std::string const& path)
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data || KXMDFileMeta::metaTypeForData(*data) != KXMDMetaTypeMP4)
        return std::nullopt;
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    for (auto const& cover : root->allAtomsWithPath("moov/udta/meta/ilst/covr")) {
        if (auto picture = pictureOfAtom(*cover, *data))
            return picture;
    }
    return std::nullopt;
}
