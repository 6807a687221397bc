#include "kxmd/base/KXBigEndianPrivate.h"
#include "kxmd/image/KXPictureSizeWalksPrivate.h"

#include <algorithm>
#include <array>

namespace {

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

}

/// The size in the header chunk (ISO/IEC 15948, 11.2.2), if that is whole.
std::optional<KXSize> sizeOfPNG(KXPictureReader picture)
{
    // Signature; chunk length, type, width, height, five bytes of colour and coding, and code.
    constexpr std::size_t lengthAndType = 8, type = 12, width = 16, height = 20, code = 29;
    constexpr std::array<std::uint8_t, 8> lengthAndTypeOfHeader { 0, 0, 0, 13, 'I', 'H', 'D', 'R' };
    std::array<std::uint8_t, 33> head;
    std::span<std::uint8_t const, 33> const bytes(head);
    bool const isHeader = picture.readBytesTo(head)
        && std::ranges::equal(bytes.subspan<lengthAndType, 8>(), lengthAndTypeOfHeader)
        && crcOf(bytes.subspan<type, code - type>()) == bigEndian32(bytes.subspan<code, 4>());
    if (!isHeader)
        return std::nullopt;
    return sizeOfPixels(
        bigEndian32(bytes.subspan<width, 4>()), bigEndian32(bytes.subspan<height, 4>()));
}
