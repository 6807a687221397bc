#include "kxmd/platform/linux/pictures/KXPNGFeedPrivate.h"

#include "kxmd/image/KXPictureFormatPrivate.h"

#include <algorithm>
#include <array>
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
/// capital, and those about colours and orientation. An animation's further frames are in chunks of
/// their own.
bool isNeeded(std::string_view chunkType, std::uint64_t length)
{
    constexpr std::string_view colourTypes = "tRNS,gAMA,cHRM,sRGB,sBIT";
    bool const isCritical = chunkType[0] >= 'A' && chunkType[0] <= 'Z';
    return isCritical || (chunkType == "iCCP" && length <= mostProfileBytes)
        || (chunkType == "eXIf" && length <= mostExifBytes)
        || colourTypes.find(chunkType) != std::string_view::npos;
}

}

bool feedPNGTo(KXPNGFeed const& feed, KXAbstractData& data, std::uint64_t length)
{
    std::uint64_t const end = data.offset() + std::min(length, data.remainingLength());
    if (!feedBytes(feed, data, signatureOfPNG.size()))
        return false;
    while (data.offset() < end) {
        std::uint64_t const chunk = data.offset();
        std::uint64_t const chunkLength = data.readUInt32OrZero(KXSwap::yes);
        std::array<std::uint8_t, 4> letters {};
        if (!data.readBytesTo(letters.data(), letters.size()))
            return false;
        std::string_view const type(reinterpret_cast<char const*>(letters.data()), letters.size());
        data.setOffset(chunk);
        std::uint64_t const whole = chunkLength + chunkOverhead;
        if (!isNeeded(type, chunkLength))
            data.skipBytes(whole);
        else if (!feedBytes(feed, data, std::min(whole, end - chunk)) || whole > end - chunk)
            return false;
        if (type == "IEND")
            return true;
    }
    return false;
}
