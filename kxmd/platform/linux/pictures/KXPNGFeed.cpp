#include "kxmd/platform/linux/pictures/KXPNGFeedPrivate.h"

#include "kxmd/image/KXPictureFormatPrivate.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t pieceLength = 64 * 1024;

bool feedBytes(KXPNGFeed const& feed, KXAbstractData& data, std::uint64_t length)
{
    std::vector<std::uint8_t> piece(
        static_cast<std::size_t>(std::min<std::uint64_t>(pieceLength, length)));
    while (length) {
        std::uint64_t const count = data.readBytesToMaxLength(
            piece.data(), std::min<std::uint64_t>(piece.size(), length));
        if (!count || !feed(std::span(piece).first(static_cast<std::size_t>(count))))
            return false;
        length -= count;
    }
    return true;
}

constexpr std::uint64_t chunkOverhead = 12; // Length, type and checksum, four bytes each.
constexpr std::uint64_t mostProfileBytes = 1 << 20; // Real colour profiles take some kilobytes.
constexpr std::uint64_t mostExifBytes = 1 << 16; // All that a JPEG has room for.

/// Whether a first look at the picture needs a chunk: the critical ones, whose first letter is a
/// capital, and those about colours. An animation's further frames are in chunks of their own.
bool isNeeded(std::string_view chunkType, std::uint64_t length)
{
    constexpr std::string_view colourTypes = "tRNS,gAMA,cHRM,sRGB,sBIT";
    bool const isCritical = chunkType[0] >= 'A' && chunkType[0] <= 'Z';
    return isCritical || (chunkType == "iCCP" && length <= mostProfileBytes)
        || colourTypes.find(chunkType) != std::string_view::npos;
}

struct Chunk {
    std::uint64_t length; ///< Of its content.
    std::string type;

    std::uint64_t wholeLength() const { return length + chunkOverhead; }
};

/// Reads the beginning of a chunk; absent at the file's end.
std::optional<Chunk> readChunk(KXAbstractData& data)
{
    std::uint64_t const length = data.readUInt32OrZero(KXSwap::yes);
    std::array<std::uint8_t, 4> letters {};
    if (!data.readBytesTo(letters.data(), letters.size()))
        return std::nullopt;
    return Chunk { length, std::string(letters.begin(), letters.end()) };
}

}

bool feedPNGTo(KXPNGFeed const& feed, KXAbstractData& data, std::uint64_t length)
{
    std::uint64_t const end = data.offset() + std::min(length, data.remainingLength());
    if (!feedBytes(feed, data, signatureOfPNG.size()))
        return false;
    while (data.offset() < end) {
        std::uint64_t const start = data.offset();
        auto const chunk = readChunk(data);
        if (!chunk)
            return false;
        data.setOffset(start);
        std::uint64_t const there = end - start;
        if (!isNeeded(chunk->type, chunk->length))
            data.skipBytes(chunk->wholeLength());
        else if (!feedBytes(feed, data, std::min(chunk->wholeLength(), there))
            || chunk->wholeLength() > there)
            return false;
        if (chunk->type == "IEND")
            return true;
    }
    return false;
}

std::vector<std::uint8_t> exifInPNG(KXAbstractData& data, std::uint64_t length)
{
    std::uint64_t const start = data.offset();
    std::uint64_t const end = start + std::min(length, data.remainingLength());
    std::vector<std::uint8_t> exif;
    data.skipBytes(signatureOfPNG.size());
    while (data.offset() < end) {
        std::uint64_t const next = data.offset();
        auto const chunk = readChunk(data);
        if (!chunk || chunk->type == "IEND" || chunk->wholeLength() > end - next)
            break;
        if (chunk->type == "eXIf") {
            exif.resize(chunk->length <= mostExifBytes ? chunk->length : 0);
            if (!data.readBytesTo(exif.data(), exif.size()))
                exif.clear();
            break;
        }
        data.setOffset(next + chunk->wholeLength());
    }
    data.setOffset(start);
    return exif;
}
