#include "kxmd/thumbnails/KXMDExifParser.h"

#include <set>

namespace {

constexpr std::uint32_t mostEntries = 1u << 20;
constexpr std::size_t mostDirectories = 1u << 20;

// Markers of ITU-T T.81, table B.1.
constexpr std::uint16_t startOfImage = 0xFFD8;
constexpr std::uint16_t applicationSegment0 = 0xFFE0; ///< Holds "JFIF".
constexpr std::uint16_t applicationSegment1 = 0xFFE1; ///< Holds "Exif".

// TIFF 6.0, sections 2 and 22.
constexpr std::uint16_t littleEndianMark = 0x4949;
constexpr std::uint16_t bigEndianMark = 0x4D4D;
constexpr std::uint16_t magicNumber = 42;
constexpr std::uint32_t firstDirectoryOffset = 8;
constexpr std::uint64_t entrySize = 12;
constexpr std::uint16_t previewOffsetTag = 0x0201; ///< JPEGInterchangeFormat.
constexpr std::uint16_t previewLengthTag = 0x0202; ///< JPEGInterchangeFormatLength.

/// Moves past the application segment that the preview's segment follows at once, or stays.
bool skipToExifSegment(KXAbstractData& data)
{
    std::uint16_t marker = data.readUInt16OrZero(KXSwap::yes);
    if (marker == applicationSegment0) {
        std::uint64_t const segment = data.offset();
        std::uint16_t length;
        if (data.readUInt16To(length, KXSwap::yes))
            data.setOffset(segment + length); // The length counts its own two bytes.
        marker = data.readUInt16OrZero(KXSwap::yes);
    }
    return marker == applicationSegment1;
}

}

KXMDExifParser::KXMDExifParser(KXPlatform::Ref platform)
    : _platform(platform ? std::move(platform) : KXPlatform::shared())
{
}

bool KXMDExifParser::parseAbstractData(KXAbstractData& data)
{
    _thumbnailAddress = 0;
    _thumbnailLength = 0;
    _entriesLeft = mostEntries;
    data.setOffset(0);
    if (data.readUInt16OrZero(KXSwap::yes) != startOfImage || !skipToExifSegment(data))
        return false;
    return readExifData(data, data.readUInt16OrZero(KXSwap::yes));
}

bool KXMDExifParser::readExifData(KXAbstractData& data, std::uint16_t)
{
    std::optional<std::string> identifier;
    if (!data.readStringTo(identifier, 4, KXStringEncodingASCII) || *identifier != "Exif")
        return false;
    data.skipBytes(2);
    std::uint64_t const base = data.offset();
    std::uint16_t const mark = data.readUInt16OrZero(KXSwap::yes);
    if (mark != littleEndianMark && mark != bigEndianMark)
        return false;
    KXSwap const swap = mark == bigEndianMark ? KXSwap::yes : KXSwap::no;
    if (data.readUInt16OrZero(swap) != magicNumber
        || data.readUInt32OrZero(swap) != firstDirectoryOffset)
        return false;
    // The block is well-formed, whether or not it holds a preview.
    [[maybe_unused]] bool const found = readTagsFromData(data, base, swap);
    return true;
}

bool KXMDExifParser::readTagsFromData(
    KXAbstractData& data, std::uint64_t locationOffset, KXSwap swap)
{
    if (!_entriesLeft)
        _entriesLeft = mostEntries; // When it is called on its own.
    std::set<std::uint64_t> visited;
    while (visited.size() < mostDirectories && visited.insert(data.offset()).second) {
        std::uint16_t const count = data.readUInt16OrZero(swap);
        std::uint64_t const entries = data.offset();
        if (!readEntries(data, count, locationOffset, swap))
            return false;
        if (isFound())
            return readThumbnail(data);
        data.setOffset(entries + entrySize * count);
        std::uint32_t const next = data.readUInt32OrZero(swap);
        if (!next)
            return false;
        data.setOffset(locationOffset + next);
    }
    return false;
}

/// Reads the entries of one directory up to the one that completes the preview. False when the file
/// has had more entries than any camera writes.
bool KXMDExifParser::readEntries(
    KXAbstractData& data, std::uint16_t count, std::uint64_t base, KXSwap swap)
{
    std::uint64_t const entries = data.offset();
    for (std::uint64_t i = 0; i < count; ++i) {
        if (!_entriesLeft)
            return false;
        --_entriesLeft;
        data.setOffset(entries + entrySize * i);
        if (!readEntry(data, base, swap) || isFound())
            break;
    }
    return true;
}

/// Reads one entry, and its value if that is half of the preview's place. False at the end of the
/// file.
bool KXMDExifParser::readEntry(KXAbstractData& data, std::uint64_t base, KXSwap swap)
{
    std::uint16_t tag;
    if (!data.readUInt16To(tag, swap))
        return false;
    if (tag != previewOffsetTag && tag != previewLengthTag)
        return true;
    data.skipBytes(6); // Type and count, whatever they say.
    std::uint32_t value;
    if (!data.readUInt32To(value, swap))
        return true;
    if (tag == previewOffsetTag)
        _thumbnailAddress = base + value;
    else
        _thumbnailLength = value;
    return true;
}

bool KXMDExifParser::readThumbnail(KXAbstractData& data)
{
    data.setOffset(_thumbnailAddress);
    if (_thumbnailLength > data.remainingLength())
        return false;
    setThumbnail(_platform->pictureLoader->imageInData(data, _thumbnailLength, {}));
    return true;
}
