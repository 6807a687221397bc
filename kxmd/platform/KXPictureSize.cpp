#include "kxmd/platform/KXPictureSize.h"

#include "kxmd/platform/KXPlatform.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

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

/// Reads the next marker's code. Any number of fill bytes may stand in front of it (B.1.1.2); other
/// stray bytes, which some cameras leave between segments, are passed over as decoders do.
bool readMarkerTo(std::uint8_t& marker, KXAbstractData& data)
{
    bool isBehindFF = false;
    for (;;) {
        std::uint8_t byte;
        if (!data.budget().takeHeaderByte() || !data.readUInt8To(byte))
            return false;
        if (isBehindFF && byte != 0xFF && byte != 0) {
            marker = byte;
            return true;
        }
        isBehindFF = byte == 0xFF;
    }
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
            constexpr std::uint16_t shortestFrameHeader = 8;
            if (length < shortestFrameHeader)
                return std::nullopt;
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

/// The size in the header chunk, if that is whole; `data` stands at the signature.
std::optional<KXSize> sizeOfPNG(KXAbstractData& data)
{
    // Signature; chunk length, type, width, height, five bytes of colour and coding, and code.
    constexpr std::size_t type = 12, width = 16, height = 20, code = 29;
    constexpr std::array<std::uint8_t, 8> lengthAndType { 0, 0, 0, 13, 'I', 'H', 'D', 'R' };
    std::array<std::uint8_t, 33> bytes;
    if (!data.readBytesTo(bytes.data(), bytes.size()))
        return std::nullopt;
    bool const whole = std::equal(lengthAndType.begin(), lengthAndType.end(), bytes.begin() + 8)
        && crcOf(std::span(bytes).subspan(type, code - type)) == numberAt(&bytes[code]);
    std::uint32_t const pixelsWide = numberAt(&bytes[width]);
    std::uint32_t const pixelsHigh = numberAt(&bytes[height]);
    constexpr std::uint32_t most = 0x7FFFFFFF;
    if (!whole || !pixelsWide || !pixelsHigh || pixelsWide > most || pixelsHigh > most)
        return std::nullopt;
    return KXSize { static_cast<double>(pixelsWide), static_cast<double>(pixelsHigh) };
}

struct Signature {
    std::size_t position;
    std::string_view bytes;
};

// The other formats that covers come in. Nothing else is given to the picture library: some of its
// loaders, those of text formats above all, take long to refuse what they do not know.
constexpr Signature signaturesOfOtherFormats[] {
    { 0, "GIF8" }, { 0, "BM" }, { 0, std::string_view("II*\0", 4) }, // TIFF, little-endian.
    { 0, std::string_view("MM\0*", 4) }, // TIFF, big-endian.
    { 8, "WEBP" }, { 4, "ftypavi" }, // AVIF.
    { 4, "ftyphei" }, // HEIF of HEVC.
    { 4, "ftypmif1" }, // HEIF.
};

bool isOfOtherFormat(std::string_view head)
{
    return std::ranges::any_of(signaturesOfOtherFormats, [head](Signature const& signature) {
        return head.size() > signature.position
            && head.substr(signature.position).starts_with(signature.bytes);
    });
}

std::optional<KXSize> sizeByPictureLibrary(KXAbstractData& data, std::uint64_t length)
{
    constexpr std::uint64_t costOfALoader = 128 * 1024; // Also for a picture of a few bytes.
    KXParseBudget& budget = data.budget();
    if (!budget.pictureBytes())
        return std::nullopt;
    std::uint64_t const start = data.offset();
    auto const size = KXPlatform::shared()->pictureLoader->sizeOfPictureInData(
        data, std::min(length, budget.pictureBytes()));
    budget.takePictureBytes(std::max(data.offset() - start, costOfALoader));
    return size;
}

}

std::optional<KXSize> sizeOfEncodedPictureInData(KXAbstractData& data, std::uint64_t length)
{
    constexpr std::string_view startOfImage = "\xFF\xD8";
    constexpr std::string_view signatureOfPNG = "\x89PNG\r\n\x1A\n";
    constexpr std::uint64_t lengthOfPNGHeader = 33;

    if (length > data.remainingLength())
        return std::nullopt;
    std::uint64_t const start = data.offset();
    std::array<char, 12> bytes;
    std::uint64_t const count
        = data.readBytesToMaxLength(reinterpret_cast<std::uint8_t*>(bytes.data()),
            std::min<std::uint64_t>(length, bytes.size()));
    std::string_view const head(bytes.data(), static_cast<std::size_t>(count));
    if (head.starts_with(startOfImage)) {
        data.setOffset(start + startOfImage.size());
        return sizeOfJPEG(data, start + length);
    }
    data.setOffset(start);
    if (head.starts_with(signatureOfPNG))
        return length >= lengthOfPNGHeader ? sizeOfPNG(data) : std::nullopt;
    return isOfOtherFormat(head) ? sizeByPictureLibrary(data, length) : std::nullopt;
}
