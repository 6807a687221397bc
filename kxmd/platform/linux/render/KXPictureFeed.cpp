#include "kxmd/platform/linux/render/KXPictureFeedPrivate.h"

#include "kxmd/image/KXPictureFormatPrivate.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t pieceLength = 64 * 1024;

bool feedBytes(KXPictureFeed const& feed, KXAbstractData& data, std::uint64_t length)
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

// PNG (ISO/IEC 15948).

constexpr std::uint64_t chunkOverhead = 12; // Length, type and checksum, four bytes each.
constexpr std::uint64_t mostProfileBytes = 1 << 20; // Real colour profiles take some kilobytes.

/// Whether a first look at the picture needs a chunk: the critical ones, whose first letter is a
/// capital, and those about colours. An animation's further frames are in chunks of their own.
bool isNeeded(std::string_view chunkType, std::uint64_t length)
{
    constexpr std::string_view colourTypes = "tRNS,gAMA,cHRM,sRGB,sBIT";
    bool const isCritical = chunkType[0] >= 'A' && chunkType[0] <= 'Z';
    return isCritical || (chunkType == "iCCP" && length <= mostProfileBytes)
        || colourTypes.find(chunkType) != std::string_view::npos;
}

/// `data` stands at the signature, and `end` after the last byte.
bool feedPNG(KXPictureFeed const& feed, KXAbstractData& data, std::uint64_t end)
{
    if (!feedBytes(feed, data, signatureOfPNG.size()))
        return false;
    while (data.offset() < end) {
        std::uint64_t const chunk = data.offset();
        std::uint64_t const length = data.readUInt32OrZero(KXSwap::yes);
        std::array<std::uint8_t, 4> letters {};
        if (!data.readBytesTo(letters.data(), letters.size()))
            return false;
        std::string_view const type(reinterpret_cast<char const*>(letters.data()), letters.size());
        data.setOffset(chunk);
        std::uint64_t const whole = length + chunkOverhead;
        if (!isNeeded(type, length))
            data.skipBytes(whole);
        else if (!feedBytes(feed, data, std::min(whole, end - chunk)) || whole > end - chunk)
            return false;
        if (type == "IEND")
            return true;
    }
    return false;
}

// GIF89a.

constexpr std::uint8_t colourTableFlag = 0x80;
constexpr std::uint8_t imageSeparator = ',';
constexpr std::uint8_t extensionIntroducer = '!';
constexpr std::uint8_t trailer = ';';

std::uint64_t lengthOfColourTable(std::uint8_t packedFields)
{
    return packedFields & colourTableFlag ? std::uint64_t { 3 } << ((packedFields & 7) + 1) : 0;
}

/// Moves past the empty block that ends a row of blocks; false when there is none.
bool skipSubBlocks(KXAbstractData& data)
{
    std::uint8_t length = 0;
    while (data.readUInt8To(length)) {
        if (!length)
            return true;
        data.skipBytes(length);
    }
    return false;
}

/// Where the first frame ends, counted from the start of the file; absent when it is cut off. The
/// read position, which stands at the file's start, is left anywhere.
std::optional<std::uint64_t> endOfFirstFrame(KXAbstractData& data)
{
    std::uint64_t const start = data.offset();
    data.skipBytes(10); // Signature, version and size of the screen.
    std::uint8_t const screenFields = data.readUInt8OrZero();
    data.skipBytes(2 + lengthOfColourTable(screenFields)); // Background, aspect ratio, colours.
    for (;;) {
        std::uint8_t const introducer = data.readUInt8OrZero();
        if (introducer == imageSeparator)
            break;
        if (introducer != extensionIntroducer)
            return std::nullopt;
        data.skipBytes(1); // What it extends.
        if (!skipSubBlocks(data))
            return std::nullopt;
    }
    data.skipBytes(8); // Place and size.
    std::uint8_t const frameFields = data.readUInt8OrZero();
    data.skipBytes(lengthOfColourTable(frameFields) + 1); // Colours, and the size of the codes.
    return skipSubBlocks(data) ? std::optional(data.offset() - start) : std::nullopt;
}

bool feedGIF(KXPictureFeed const& feed, KXAbstractData& data, std::uint64_t length)
{
    std::uint64_t const start = data.offset();
    auto const frameLength = endOfFirstFrame(data);
    data.setOffset(start);
    if (!frameLength || *frameLength > length)
        return feedBytes(feed, data, std::min(length, mostPictureBytes));
    return feedBytes(feed, data, *frameLength) && feed(std::span(&trailer, 1));
}

}

bool feedBytesTo(KXPictureFeed const& feed, KXAbstractData& data, std::uint64_t length)
{
    return feedBytes(feed, data, std::min(length, mostPictureBytes)) && length <= mostPictureBytes;
}

bool feedPictureTo(KXPictureFeed const& feed, KXAbstractData& data, std::uint64_t length)
{
    std::uint64_t const start = data.offset();
    std::array<std::uint8_t, lengthOfPictureHead> head;
    std::uint64_t const count
        = data.readBytesToMaxLength(head.data(), std::min<std::uint64_t>(head.size(), length));
    data.setOffset(start);
    auto const format = formatOfPictureWithHead(
        { reinterpret_cast<char const*>(head.data()), static_cast<std::size_t>(count) });

    if (format == KXPictureFormat::png)
        return feedPNG(feed, data, start + std::min(length, data.remainingLength()))
            && length <= data.length() - start;
    if (format == KXPictureFormat::gif)
        return feedGIF(feed, data, length);
    return feedBytesTo(feed, data, length);
}
