#include "kxmd/platform/KXPictureSize.h"

#include "kxmd/platform/KXPlatform.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

namespace {

// Markers of ITU-T T.81, table B.1; the second byte behind 0xFF.
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

bool readMarkerTo(std::uint8_t& marker, KXAbstractData& data)
{
    if (!data.readUInt8To(marker) || marker != 0xFF)
        return false;
    // Any number of fill bytes may stand in front of the code (B.1.1.2).
    while (marker == 0xFF) {
        if (!data.budget().pictureSegments || !data.readUInt8To(marker))
            return false;
        --data.budget().pictureSegments;
    }
    return true;
}

/// The frame header's size, if a scan follows it; `data` stands behind the start-of-image marker.
std::optional<KXSize> sizeOfJPEG(KXAbstractData& data, std::uint64_t end)
{
    std::optional<KXSize> size;
    for (;;) {
        std::uint8_t marker;
        if (!readMarkerTo(marker, data) || marker == endOfImage || data.offset() >= end)
            return std::nullopt;
        if (marker == startOfScan)
            return size;
        if (standsAlone(marker))
            continue;
        std::uint64_t const segment = data.offset();
        std::uint16_t const length
            = data.readUInt16OrZero(KXSwap::yes); // Counts its own two bytes.
        if (length < 2 || length > end - segment)
            return std::nullopt;
        if (isStartOfFrame(marker)) {
            data.skipBytes(1); // Sample precision in bits.
            std::uint16_t const height = data.readUInt16OrZero(KXSwap::yes);
            std::uint16_t const width = data.readUInt16OrZero(KXSwap::yes);
            if (!width || !height)
                return std::nullopt;
            size = KXSize { static_cast<double>(width), static_cast<double>(height) };
        }
        data.setOffset(segment + length);
    }
}

constexpr auto crcTable = [] {
    std::array<std::uint32_t, 256> table {};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320u : 0);
        table[byte] = crc;
    }
    return table;
}();

/// The cyclic redundancy code of a PNG chunk (ISO/IEC 15948, 5.5).
std::uint32_t crcOf(std::span<std::uint8_t const> bytes)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::uint8_t const byte : bytes)
        crc = crcTable[(crc ^ byte) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

std::uint32_t numberAt(std::uint8_t const* bytes)
{
    return std::uint32_t { bytes[0] } << 24 | std::uint32_t { bytes[1] } << 16
        | std::uint32_t { bytes[2] } << 8 | bytes[3];
}

constexpr std::array<std::uint8_t, 8> signatureOfPNG { 0x89, 'P', 'N', 'G', '\r', '\n', 0x1A,
    '\n' };

/// The size in the header chunk, if that is whole; `data` stands at the signature.
std::optional<KXSize> sizeOfPNG(KXAbstractData& data)
{
    // Signature; chunk length, type, width, height, five bytes of colour and coding, and code.
    constexpr std::size_t type = 12, width = 16, height = 20, code = 29;
    constexpr std::array<std::uint8_t, 8> lengthAndType { 0, 0, 0, 13, 'I', 'H', 'D', 'R' };
    std::array<std::uint8_t, 33> bytes;
    if (!data.readBytesTo(bytes.data(), bytes.size()))
        return std::nullopt;
    bool const whole = std::equal(signatureOfPNG.begin(), signatureOfPNG.end(), bytes.begin())
        && std::equal(lengthAndType.begin(), lengthAndType.end(), bytes.begin() + 8)
        && crcOf(std::span(bytes).subspan(type, code - type)) == numberAt(&bytes[code]);
    std::uint32_t const pixelsWide = numberAt(&bytes[width]);
    std::uint32_t const pixelsHigh = numberAt(&bytes[height]);
    constexpr std::uint32_t most = 0x7FFFFFFF;
    if (!whole || !pixelsWide || !pixelsHigh || pixelsWide > most || pixelsHigh > most)
        return std::nullopt;
    return KXSize { static_cast<double>(pixelsWide), static_cast<double>(pixelsHigh) };
}

}

std::optional<KXSize> sizeOfEncodedPictureInData(KXAbstractData& data, std::uint64_t length)
{
    constexpr std::uint16_t startOfImage = 0xFFD8;
    constexpr std::uint16_t firstOfPNG = 0x8950;
    constexpr std::uint64_t lengthOfPNGHeader = 33;

    if (length > data.remainingLength())
        return std::nullopt;
    std::uint64_t const start = data.offset();
    std::uint16_t const first
        = length >= 2 ? data.readUInt16OrZero(KXSwap::yes) : std::uint16_t { 0 };
    if (first == startOfImage)
        return sizeOfJPEG(data, start + length);
    data.setOffset(start);
    if (first == firstOfPNG)
        return length >= lengthOfPNGHeader ? sizeOfPNG(data) : std::nullopt;
    if (!data.budget().pictureLoads)
        return std::nullopt;
    --data.budget().pictureLoads;
    return KXPlatform::shared()->pictureLoader->sizeOfPictureInData(data, length);
}
