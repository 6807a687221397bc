#pragma once

#include "support/Builders.h"

// The EXIF block of a JPEG file (JEITA CP-3451, 4.5 and 4.6), piece by piece.

namespace build {

/// The byte order of a TIFF header, by its mark.
enum class TIFF { II, MM };

inline Bytes inOrder(TIFF order, Bytes bigEndian)
{
    return order == TIFF::MM ? bigEndian : Bytes(bigEndian.rbegin(), bigEndian.rend());
}

inline Bytes u16(TIFF order, std::uint32_t value) { return inOrder(order, u16(value)); }
inline Bytes u32(TIFF order, std::uint32_t value) { return inOrder(order, u32(value)); }

constexpr std::uint32_t tiffShort = 3;
constexpr std::uint32_t tiffLong = 4;

/// An entry of a directory with one value of 32 bits, whatever the type says.
inline Bytes entry(TIFF order, std::uint32_t tag, std::uint32_t value,
    std::uint32_t type = tiffLong, std::uint32_t count = 1)
{
    return join(u16(order, tag), u16(order, type), u32(order, count), u32(order, value));
}

/// How to turn a picture upright; the value of 16 bits comes first in its field.
inline Bytes orientation(TIFF order, std::uint32_t value)
{
    return entry(order, 0x0112, order == TIFF::MM ? value << 16 : value, tiffShort);
}

constexpr std::size_t entryLength = 12;

/// The length of a directory with that many entries.
constexpr std::uint32_t directoryLength(std::uint32_t entries)
{
    return 2 + entries * static_cast<std::uint32_t>(entryLength) + 4;
}

/// An image file directory, followed by one at `next` or by none.
inline Bytes directory(TIFF order, std::vector<Bytes> const& entries, std::uint32_t next = 0)
{
    return join(u16(order, static_cast<std::uint32_t>(entries.size())), concatenated(entries),
        u32(order, next));
}

/// A TIFF header and what follows. Offsets count from here.
template <class... Pieces> Bytes tiff(TIFF order, Pieces const&... pieces)
{
    return join(text(order == TIFF::MM ? "MM" : "II"), u16(order, 42), u32(order, 8), pieces...);
}

inline Bytes const startOfImage = bytes({ 0xFF, 0xD8 });

/// An application segment, 0 to 15.
inline Bytes app(std::uint32_t number, Bytes const& content)
{
    return join(
        u8(0xFF), u8(0xE0 + number), u16(static_cast<std::uint32_t>(content.size() + 2)), content);
}

inline Bytes jfif() { return app(0, join(text("JFIF"), zeros(10))); }

/// The segment of an EXIF block.
inline Bytes exif(Bytes const& tiff) { return app(1, join(text("Exif"), zeros(2), tiff)); }

/// The JPEG file with another segment after its start.
inline Bytes withSegment(Bytes const& jpeg, Bytes const& segment)
{
    return join(startOfImage, segment, Bytes(jpeg.begin() + 2, jpeg.end()));
}

}
