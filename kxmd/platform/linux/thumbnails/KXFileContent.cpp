#include "kxmd/platform/linux/thumbnails/KXFileContentPrivate.h"

#include "kxmd/image/KXPictureFormatPrivate.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace {

using namespace std::string_view_literals;

struct Signature {
    std::size_t offset;
    std::string_view bytes;
    KXFileContent content;
};

using enum KXFileContent;

// Everything but pictures: the file types of ISO/IEC 14496-12 that are pictures come earlier.
constexpr Signature signatures[] {
    { 4, "ftyp"sv, movie },
    { 4, "moov"sv, movie },
    { 4, "mdat"sv, movie },
    { 4, "wide"sv, movie },
    { 4, "free"sv, movie },
    { 4, "skip"sv, movie },
    { 4, "pnot"sv, movie },
    { 0, "ID3"sv, movie },
    { 0, "fLaC"sv, movie },
    { 0, "OggS"sv, movie },
    { 0, "\x1A\x45\xDF\xA3"sv, movie }, // Matroska, WebM
    { 8, "AVI "sv, movie },
    { 8, "WAVE"sv, movie },
    { 8, "AIFF"sv, movie },
    { 8, "AIFC"sv, movie },
    { 0, "FLV\1"sv, movie },
    { 0, "\x30\x26\xB2\x75\x8E\x66\xCF\x11"sv, movie }, // ASF: WMV, WMA
    { 0, "\0\0\1\xBA"sv, movie }, // MPEG program stream
    { 0, "\0\0\1\xB3"sv, movie }, // MPEG video
    { 0, "\0\0\1\xB0"sv, movie }, // MPEG-4 video
    { 0, "YUV4MPEG2 "sv, movie },
    { 0, "DKIF"sv, movie }, // IVF: VP8, VP9, AV1
    { 0, "\x06\x0E\x2B\x34\x02\x05\x01\x01\x0D\x01\x02"sv, movie }, // MXF
    { 0, "nut/multimedia container\0"sv, movie },
    { 0, "#!AMR"sv, movie },
    { 0, ".snd"sv, movie },
    { 0, ".RMF"sv, movie },
    { 0, "caff"sv, movie },
    { 0, "wvpk"sv, movie },
    { 0, "MAC "sv, movie },
    { 0, "MPCK"sv, movie },
    { 0, "MP+"sv, movie },
    { 0, "TTA1"sv, movie },
    { 0, "DSD "sv, movie },
};

/// Whether what may be a bitmap of Windows has its four reserved bytes: two letters alone would
/// make pictures of texts.
bool hasReservedBytesOfBitmap(std::string_view head)
{
    constexpr std::size_t reserved = 6;
    return head.substr(0, 10).ends_with("\0\0\0\0"sv) && head.size() > reserved + 4;
}

/// What a file with the signature of a picture format is to be shown by. Absent when the signature
/// alone is too weak to tell.
std::optional<KXFileContent> contentOfPicture(KXPictureFormat format, std::string_view head)
{
    switch (format) {
    case KXPictureFormat::jpeg:
        return head.substr(2).starts_with('\xFF') ? std::optional(picture) : std::nullopt;
    case KXPictureFormat::png:
        return picture;
    case KXPictureFormat::gif:
        return isVersionOfGIF(head) ? std::optional(picture) : std::nullopt;
    case KXPictureFormat::bmp:
        return hasReservedBytesOfBitmap(head) ? std::optional(picture) : std::nullopt;
    case KXPictureFormat::tiff:
    case KXPictureFormat::webp:
    case KXPictureFormat::heif:
    case KXPictureFormat::heifSequence:
    case KXPictureFormat::icon:
    case KXPictureFormat::uncommon:
        return rarePicture;
    case KXPictureFormat::unknown:
        break;
    }
    return std::nullopt;
}

/// A transport stream (ISO/IEC 13818-1): packets of 188 bytes, with four more in front on discs.
bool isTransportStream(std::span<std::uint8_t const> head)
{
    constexpr std::uint8_t sync = 0x47;
    constexpr std::size_t packetLength = 188, stampLength = 4;
    auto const hasPackets = [head](std::size_t first, std::size_t length) {
        for (std::size_t i = 0; i < 3; ++i) {
            if (first + i * length >= head.size() || head[first + i * length] != sync)
                return false;
        }
        return true;
    };
    return hasPackets(0, packetLength) || hasPackets(stampLength, packetLength + stampLength);
}

/// A byte stream of ITU-T H.264 or H.265 (annex B of both). It begins with parameters, or with the
/// unit that stands before a picture.
bool isVideoByteStream(std::string_view head)
{
    if (head.starts_with("\0\0\0\1"sv))
        head.remove_prefix(1); // A zero may stand before the first start code.
    if (head.size() < 5 || !head.starts_with("\0\0\1"sv))
        return false;
    auto const unit = static_cast<std::uint8_t>(head[3]), next = static_cast<std::uint8_t>(head[4]);
    bool const isH264
        = unit == 0x67 || unit == 0x47 || unit == 0x27 || (unit == 0x09 && (next & 0x1F) == 0x10);
    bool const isH265 = (unit == 0x40 || unit == 0x42 || unit == 0x46) && next == 0x01;
    return isH264 || isH265;
}

bool contains(std::string_view head, std::string_view text)
{
    return head.find(text) != std::string_view::npos;
}

/// A drawing: text with its root element, which comments and declarations may stand before.
bool isDrawing(std::string_view head)
{
    std::size_t const first = head.find_first_not_of("\xEF\xBB\xBF \t\r\n");
    return first != std::string_view::npos && head[first] == '<'
        && (contains(head, "<svg") || contains(head, ":svg"));
}

}

bool isAudioFrame(std::span<std::uint8_t const> head)
{
    if (head.size() < 4 || head[0] != 0xFF || (head[1] & 0xE0) != 0xE0)
        return false;
    constexpr std::uint8_t ofTexts = 0xFE; // The byte-order mark of UTF-16 (RFC 2781).
    if (head[1] == ofTexts)
        return false;
    if ((head[1] & 0xF6) == 0xF0) // AAC: no layer.
        return (head[2] >> 2 & 0xF) < 13; // Sampling frequencies in use.
    constexpr unsigned reserved = 1;
    return (head[1] >> 3 & 3) != reserved && (head[1] >> 1 & 3) != 0 && head[2] >> 4 != 0xF
        && (head[2] >> 2 & 3) != 3;
}

KXFileContent contentOfFileWithHead(std::span<std::uint8_t const> bytes)
{
    std::string_view const head(reinterpret_cast<char const*>(bytes.data()), bytes.size());
    for (auto const& signature : pictureSignatures) {
        auto const content
            = signature.matches(head) ? contentOfPicture(signature.format, head) : std::nullopt;
        if (content)
            return *content;
    }
    if (isPortableMap(head))
        return rarePicture;
    for (auto const& signature : signatures) {
        if (head.size() > signature.offset
            && head.substr(signature.offset).starts_with(signature.bytes))
            return signature.content;
    }
    if (isAudioFrame(bytes) || isTransportStream(bytes) || isVideoByteStream(head))
        return movie;
    // As readers of PDF do: some files have a line or two in front.
    constexpr std::size_t longestWayToPDF = 1024;
    if (contains(head.substr(0, longestWayToPDF), "%PDF-"))
        return pdf;
    return isDrawing(head) ? drawing : other;
}
