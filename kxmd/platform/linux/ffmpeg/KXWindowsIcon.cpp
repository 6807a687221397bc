#include "kxmd/platform/linux/ffmpeg/KXWindowsIconPrivate.h"

#include "kxmd/base/KXMemoryDataPrivate.h"
#include "kxmd/image/KXPictureReaderPrivate.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

// No standard describes Windows icons; the names are the Windows API's.

namespace {

constexpr std::size_t iconHeaderLength = 6; // ICONDIR
constexpr std::size_t entryLength = 16; // ICONDIRENTRY
constexpr std::size_t colourCountInEntry = 2; // bColorCount, after bWidth and bHeight.
constexpr std::size_t lengthInEntry = 8; // dwBytesInRes, and dwImageOffset after it.
constexpr std::uint32_t infoHeaderLength = 40; // BITMAPINFOHEADER
constexpr std::uint32_t uncompressed = 0; // BI_RGB
constexpr std::uint64_t bytesAfterCompression = 12; // biSizeImage to biYPelsPerMeter.
constexpr std::uint64_t bytesOfColour = 4; // RGBQUAD
constexpr std::uint16_t bitsWithAlpha = 32;

/// A picture of an icon up to where its pixels begin.
struct IconBitmap {
    std::uint32_t width;
    std::uint32_t heightOfBoth; ///< Of the picture and of the mask below it.
    std::uint16_t bitsPerPixel;
    KXPictureReader pixels;
};

/// Bytes per row; rows are padded to 32 bits.
std::uint64_t rowLength(std::uint64_t width, std::uint64_t bitsPerPixel)
{
    return (width * bitsPerPixel + 31) / 32 * 4;
}

/// Where an entry of the directory begins.
std::size_t startOfEntry(std::size_t index) { return iconHeaderLength + index * entryLength; }

/// An entry of the directory; empty past the icon's end.
template <class Byte> std::span<Byte> entryOf(std::span<Byte> icon, std::size_t index)
{
    std::uint32_t const count
        = icon.size() < iconHeaderLength ? 0 : icon[4] | std::uint32_t { icon[5] } << 8;
    std::size_t const start = startOfEntry(index);
    return index < count && start + entryLength <= icon.size() ? icon.subspan(start, entryLength)
                                                               : std::span<Byte>();
}

/// The bytes of one picture, as its directory entry gives them.
std::optional<KXPictureReader> partOfIcon(KXPictureReader icon, std::size_t index)
{
    std::uint32_t length, offset;
    if (!icon.setPosition(startOfEntry(index) + lengthInEntry)
        || !icon.readUInt32To(length, KXSwap::no) || !icon.readUInt32To(offset, KXSwap::no)
        || !icon.setPosition(offset))
        return std::nullopt;
    return icon.readPart(length);
}

std::optional<IconBitmap> bitmapIn(KXPictureReader part)
{
    std::uint32_t headerLength, width, height, compression, colours;
    std::uint16_t planes, bits;
    if (!part.readUInt32To(headerLength, KXSwap::no) || headerLength != infoHeaderLength
        || !part.readUInt32To(width, KXSwap::no) || !part.readUInt32To(height, KXSwap::no)
        || !part.readUInt16To(planes, KXSwap::no) || !part.readUInt16To(bits, KXSwap::no)
        || !part.readUInt32To(compression, KXSwap::no) || compression != uncompressed
        || !part.skipBytes(bytesAfterCompression) || !part.readUInt32To(colours, KXSwap::no))
        return std::nullopt;
    constexpr unsigned mostBitsOfPalette = 8;
    std::uint64_t const palette = colours || bits > mostBitsOfPalette ? colours : 1u << bits;
    if (!part.setPosition(infoHeaderLength) || !part.skipBytes(palette * bytesOfColour))
        return std::nullopt;
    return IconBitmap { width, height, bits, part };
}

/// The next `length` bytes; empty when they are not all there.
std::vector<std::uint8_t> nextBytes(KXPictureReader& reader, std::uint64_t length)
{
    if (length > reader.remainingLength())
        return {};
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(length));
    return reader.readBytesTo(bytes) ? bytes : std::vector<std::uint8_t>();
}

/// Whether any pixel has a non-zero alpha; if none does, the mask decides.
bool isAlphaUsed(std::span<std::uint8_t const> pixels)
{
    for (std::size_t alpha = 3; alpha < pixels.size(); alpha += 4) {
        if (pixels[alpha])
            return true;
    }
    return false;
}

/// The mask's rows, bottom row first; empty when there is no usable mask.
std::vector<std::uint8_t> maskOf(IconBitmap bitmap, KXImage const& picture)
{
    std::uint64_t const width = picture.pixelWidth(), height = picture.pixelHeight();
    if (bitmap.width != width || bitmap.heightOfBoth / 2 != height)
        return {};
    auto const pixels = nextBytes(bitmap.pixels, height * rowLength(width, bitmap.bitsPerPixel));
    if (pixels.empty() || (bitmap.bitsPerPixel == bitsWithAlpha && isAlphaUsed(pixels)))
        return {};
    return nextBytes(bitmap.pixels, height * rowLength(width, 1));
}

/// The picture with every pixel whose mask bit is set made transparent.
KXImage::Ref withoutMasked(KXImage const& picture, std::span<std::uint8_t const> mask)
{
    std::size_t const width = picture.pixelWidth(), height = picture.pixelHeight();
    auto const length = static_cast<std::size_t>(rowLength(width, 1));
    std::vector<std::uint8_t> pixels(picture.pixels().begin(), picture.pixels().end());
    for (std::size_t y = 0; y < height; ++y) {
        auto const row = mask.subspan((height - 1 - y) * length, length);
        for (std::size_t x = 0; x < width; ++x) {
            if (row[x / 8] & 0x80 >> x % 8)
                std::fill_n(&pixels[(y * width + x) * KXImage::bytesPerPixel],
                    KXImage::bytesPerPixel, std::uint8_t { 0 });
        }
    }
    return KXImage::imageWithPixels(std::move(pixels), width, height);
}

}

std::uint32_t pixelsOfIconEntry(std::span<std::uint8_t const> icon, std::size_t index)
{
    auto const entry = entryOf(icon, index);
    auto const sideOf = [](std::uint8_t stored) { return stored ? stored : 256u; };
    return entry.empty() ? 0 : sideOf(entry[0]) * sideOf(entry[1]);
}

void forgetColourCountsOfIcon(std::span<std::uint8_t> icon)
{
    std::size_t index = 0;
    for (auto entry = entryOf(icon, 0); !entry.empty(); entry = entryOf(icon, ++index))
        entry[colourCountInEntry] = 0;
}

KXImage::Ref pictureOfIconWithMask(
    std::span<std::uint8_t const> icon, std::size_t index, KXImage::Ref picture)
{
    KXMemoryData data(icon);
    auto const part = partOfIcon({ data, data.length() }, index);
    auto const bitmap = part ? bitmapIn(*part) : std::nullopt;
    auto const mask = bitmap ? maskOf(*bitmap, *picture) : std::vector<std::uint8_t>();
    return mask.empty() ? std::move(picture) : withoutMasked(*picture, mask);
}
