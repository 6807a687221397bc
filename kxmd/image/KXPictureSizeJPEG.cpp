#include "kxmd/image/KXPictureSizeWalksPrivate.h"

namespace {

// Markers of ITU-T T.81, table B.1: the byte after 0xFF.
constexpr std::uint8_t startOfScan = 0xDA;
constexpr std::uint8_t endOfImage = 0xD9;

constexpr bool isStartOfFrame(std::uint8_t marker)
{
    constexpr std::uint8_t defineHuffmanTables = 0xC4, extension = 0xC8,
                           arithmeticConditioning = 0xCC;
    return marker >= 0xC0 && marker <= 0xCF && marker != defineHuffmanTables && marker != extension
        && marker != arithmeticConditioning;
}

constexpr bool standsAlone(std::uint8_t marker)
{
    return marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8); // TEM, RST0 to RST7, SOI.
}

/// Reads the next marker's code. Any number of fill bytes may come before it (B.1.1.2); other stray
/// bytes, which some cameras leave between segments, are passed over as decoders do.
bool readMarkerTo(std::uint8_t& marker, KXPictureReader& picture)
{
    bool isAfterFF = false;
    for (;;) {
        std::uint8_t byte;
        if (!picture.takeStep() || !picture.readUInt8To(byte))
            return false;
        if (isAfterFF && byte != 0xFF && byte != 0) {
            marker = byte;
            return true;
        }
        isAfterFF = byte == 0xFF;
    }
}

/// The size in a frame header (B.2.2) after its length.
std::optional<KXSize> sizeInFrameHeader(KXPictureReader segment)
{
    constexpr std::uint64_t shortest = 6; // As far as the number of components.
    std::uint8_t precision; // Of a sample, in bits.
    std::uint16_t height, width;
    if (segment.remainingLength() < shortest || !segment.readUInt8To(precision)
        || !segment.readUInt16To(height, KXSwap::yes) || !segment.readUInt16To(width, KXSwap::yes))
        return std::nullopt;
    return sizeOfPixels(width, height);
}

}

/// The frame header's size, if a scan follows it.
std::optional<KXSize> sizeOfJPEG(KXPictureReader picture)
{
    constexpr std::uint64_t startOfImageLength = 2;
    std::optional<KXSize> size;
    if (!picture.skipBytes(startOfImageLength))
        return std::nullopt;
    for (;;) {
        std::uint8_t marker;
        if (!readMarkerTo(marker, picture) || marker == endOfImage || !picture.remainingLength())
            return std::nullopt;
        if (marker == startOfScan)
            return size;
        if (standsAlone(marker))
            continue;
        std::uint16_t length; // Counts its own two bytes.
        if (!picture.readUInt16To(length, KXSwap::yes) || length < sizeof length)
            return std::nullopt;
        auto const segment = picture.readPart(length - sizeof length);
        if (!segment)
            return std::nullopt;
        if (isStartOfFrame(marker)) {
            size = sizeInFrameHeader(*segment);
            if (!size)
                return std::nullopt;
        }
    }
}
