#pragma once

#include "support/Exif.h"
#include "support/HEIF.h"

// Headers of pictures beyond those in Builders.h: no pixels; enough to be measured.

namespace build {

inline Bytes littleEndian(Bytes bigEndian) { return Bytes(bigEndian.rbegin(), bigEndian.rend()); }

/// The file header of a bitmap of Windows or OS/2, and what follows.
template <class... Pieces> Bytes bitmap(Pieces const&... pieces)
{
    return join(text("BM"), zeros(12), pieces...);
}

/// The header of OS/2 1.x.
inline Bytes coreHeader(std::uint32_t width, std::uint32_t height, std::uint32_t bitsPerPixel = 24)
{
    return join(littleEndian(u32(12)), littleEndian(u16(width)), littleEndian(u16(height)),
        littleEndian(u16(1)), littleEndian(u16(bitsPerPixel)));
}

/// What may differ from an ordinary header of Windows.
struct InfoHeader {
    std::uint32_t length { 40 };
    std::uint32_t bitsPerPixel { 24 };
    std::uint32_t compression { 0 };
    std::uint32_t colours { 0 };
};

/// A header of Windows, or of OS/2 2.x. A height above 2^31 stands for a negative one.
inline Bytes infoHeader(std::uint32_t width, std::uint32_t height, InfoHeader const& fields = {})
{
    Bytes header = join(littleEndian(u32(fields.length)), littleEndian(u32(width)),
        littleEndian(u32(height)), littleEndian(u16(1)), littleEndian(u16(fields.bitsPerPixel)),
        littleEndian(u32(fields.compression)), zeros(12), littleEndian(u32(fields.colours)));
    header.resize(std::max<std::size_t>(header.size(), fields.length));
    return header;
}

inline Bytes bmp(std::uint32_t width, std::uint32_t height)
{
    return bitmap(infoHeader(width, height));
}

/// An entry of a directory with one value of 16 bits, which comes first in its field.
inline Bytes shortEntry(TIFF order, std::uint32_t tag, std::uint32_t value)
{
    return entry(order, tag, order == TIFF::MM ? value << 16 : value, tiffShort);
}

inline Bytes imageWidth(TIFF order, std::uint32_t value) { return shortEntry(order, 256, value); }
inline Bytes imageLength(TIFF order, std::uint32_t value) { return shortEntry(order, 257, value); }
inline Bytes stripOffsets(TIFF order) { return entry(order, 273, 8); }

/// A TIFF of nothing but the directory with these entries.
inline Bytes tiffOf(TIFF order, std::vector<Bytes> const& entries)
{
    return tiff(order, directory(order, entries));
}

inline Bytes tiff(std::uint32_t width, std::uint32_t height)
{
    constexpr TIFF order = TIFF::II;
    return tiffOf(
        order, { imageWidth(order, width), imageLength(order, height), stripOffsets(order) });
}

/// A chunk that claims `length` bytes, padded as it should be.
inline Bytes chunkClaiming(std::uint32_t length, std::string_view code, Bytes const& content)
{
    return join(text(code), littleEndian(u32(length)), content, zeros(content.size() % 2));
}
inline Bytes chunk(std::string_view code, Bytes const& content)
{
    return chunkClaiming(static_cast<std::uint32_t>(content.size()), code, content);
}

/// The file around chunks, which claims `length` bytes after its own length.
inline Bytes riffClaiming(std::uint32_t length, Bytes const& chunks)
{
    return join(text("RIFF"), littleEndian(u32(length)), text("WEBP"), chunks);
}
inline Bytes riff(Bytes const& chunks)
{
    return riffClaiming(static_cast<std::uint32_t>(chunks.size()) + 4, chunks);
}

/// A key frame of VP8; `tag` is that of a shown one whose first partition has a byte.
inline Bytes lossyFrame(std::uint32_t width, std::uint32_t height, std::uint32_t tag = 0x30)
{
    return chunk("VP8 ",
        join(littleEndian(u24(tag)), bytes({ 0x9D, 1, 0x2A }), littleEndian(u16(width)),
            littleEndian(u16(height)), zeros(6)));
}

/// A lossless picture; `flags` are the transparency and three bits of the version.
inline Bytes losslessFrame(std::uint32_t width, std::uint32_t height, std::uint32_t flags = 0)
{
    return chunk("VP8L",
        join(
            u8(0x2F), littleEndian(u32((width - 1) | (height - 1) << 14 | flags << 28)), zeros(8)));
}

inline Bytes canvas(std::uint32_t width, std::uint32_t height, std::uint32_t flags = 0)
{
    return chunk("VP8X",
        join(
            littleEndian(u32(flags)), littleEndian(u24(width - 1)), littleEndian(u24(height - 1))));
}

inline Bytes webp(std::uint32_t width, std::uint32_t height)
{
    return riff(lossyFrame(width, height));
}

}
