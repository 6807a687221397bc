#include "kxmd/image/KXPictureSizeWalksPrivate.h"

#include <algorithm>
#include <array>
#include <bit>

// Bitmaps of Windows and OS/2 have no standard; the names are those of the Windows API.

namespace {

constexpr std::uint64_t fileHeaderLength = 14; // BITMAPFILEHEADER
constexpr std::uint32_t coreHeaderLength = 12; // BITMAPCOREHEADER, also of OS/2 1.x.

// BITMAPINFOHEADER, alone, with masks for three and for four colours; OS/2 2.x; BITMAPV4HEADER and
// BITMAPV5HEADER. All of them begin alike.
constexpr std::array<std::uint32_t, 6> infoHeaderLengths { 40, 52, 56, 64, 108, 124 };

enum Compression : std::uint32_t { none, runsOf8Bits, runsOf4Bits, bitFields }; // biCompression

struct Fields {
    std::uint32_t width { 0 };
    std::int64_t height { 0 }; ///< Negative when the uppermost row comes first.
    std::uint16_t bitsPerPixel { 0 };
    std::uint32_t compression { none };
    std::uint32_t colourCount { 0 }; ///< In the colour table; 0 for as many as there can be.
};

constexpr std::uint64_t planesLength = 2; // Their number is always 1.

bool readCoreHeaderTo(Fields& fields, KXPictureReader header)
{
    std::uint16_t width = 0, height = 0;
    bool const isRead = header.readUInt16To(width, KXSwap::no)
        && header.readUInt16To(height, KXSwap::no) && header.skipBytes(planesLength)
        && header.readUInt16To(fields.bitsPerPixel, KXSwap::no);
    // By the documents they have no sign; decoders know upside-down pictures here as well.
    fields.width = static_cast<std::uint32_t>(std::bit_cast<std::int16_t>(width));
    fields.height = std::bit_cast<std::int16_t>(height);
    return isRead;
}

bool readInfoHeaderTo(Fields& fields, KXPictureReader header)
{
    constexpr std::uint64_t sizeAndResolution = 12; // Bytes of the picture; pixels per metre.
    std::uint32_t height = 0;
    bool const isRead = header.readUInt32To(fields.width, KXSwap::no)
        && header.readUInt32To(height, KXSwap::no) && header.skipBytes(planesLength)
        && header.readUInt16To(fields.bitsPerPixel, KXSwap::no)
        && header.readUInt32To(fields.compression, KXSwap::no)
        && header.skipBytes(sizeAndResolution)
        && header.readUInt32To(fields.colourCount, KXSwap::no);
    fields.height = std::bit_cast<std::int32_t>(height);
    return isRead;
}

/// Whether the pixels are coded as their depth and direction allow.
bool hasPossibleCompression(Fields const& fields)
{
    switch (fields.compression) {
    case none:
        return true;
    case runsOf8Bits:
        return fields.bitsPerPixel == 8 && fields.height > 0;
    case runsOf4Bits:
        return fields.bitsPerPixel == 4 && fields.height > 0;
    case bitFields:
        return fields.bitsPerPixel == 16 || fields.bitsPerPixel == 32;
    }
    return false; // A JPEG or PNG for a printer, or damage.
}

bool isPossible(Fields const& fields)
{
    constexpr std::array<std::uint16_t, 6> depths { 1, 4, 8, 16, 24, 32 };
    constexpr std::uint64_t mostBitsInRow = std::uint64_t { 0xFFFFFFFF } * 8; // Of a file: bfSize.
    std::uint64_t const colours = std::uint64_t { 1 } << std::min<int>(fields.bitsPerPixel, 32);
    return std::ranges::find(depths, fields.bitsPerPixel) != depths.end()
        && fields.colourCount <= colours && hasPossibleCompression(fields)
        && std::uint64_t { fields.width } * fields.bitsPerPixel <= mostBitsInRow;
}

}

std::optional<KXSize> sizeOfBMP(KXPictureReader picture)
{
    std::uint32_t length; // Of the header, with this field.
    bool const isKnown = picture.skipBytes(fileHeaderLength)
        && picture.readUInt32To(length, KXSwap::no)
        && (length == coreHeaderLength
            || std::ranges::find(infoHeaderLengths, length) != infoHeaderLengths.end());
    if (!isKnown)
        return std::nullopt;
    bool const isCoreHeader = length == coreHeaderLength;
    auto const header = picture.readPart(length - sizeof length);
    Fields fields;
    bool const isRead = header
        && (isCoreHeader ? readCoreHeaderTo(fields, *header) : readInfoHeaderTo(fields, *header));
    if (!isRead || !isPossible(fields))
        return std::nullopt;
    auto const height = fields.height < 0 ? -fields.height : fields.height;
    return sizeOfPixels(fields.width, static_cast<std::uint32_t>(height));
}
