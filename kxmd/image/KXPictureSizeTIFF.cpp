#include "kxmd/image/KXPictureSizeWalksPrivate.h"

#include <algorithm>
#include <iterator>

// TIFF 6.0.

namespace {

// Tags of sections 8, 15 and 22.
constexpr std::uint16_t imageWidth = 256, imageLength = 257, stripOffsets = 273, tileOffsets = 324,
                        jpegInterchangeFormat = 513;

/// A field that is one number, and the values it can have.
struct NumberField {
    std::uint16_t tag;
    std::uint32_t least;
    std::uint32_t most;
};

constexpr std::uint32_t anyNumber = 0xFFFFFFFF;
constexpr NumberField numberFields[] {
    { imageWidth, 1, anyNumber }, // Columns.
    { imageLength, 1, anyNumber }, // Rows.
    { 277, 1, 0xFFFF }, // SamplesPerPixel
    { 278, 1, anyNumber }, // RowsPerStrip
    { 284, 1, 2 }, // PlanarConfiguration
    { 322, 1, anyNumber }, // TileWidth
    { 323, 1, anyNumber }, // TileLength
};

constexpr std::uint16_t typeByte = 1, typeShort = 3, typeLong = 4; // Section 2.

/// One entry of a directory (section 2).
struct Entry {
    std::uint16_t tag { 0 };
    std::uint16_t type { 0 };
    std::uint32_t count { 0 }; ///< Of values.
    KXPictureReader value; ///< Four bytes: the values if they fit, else their offset.
};

/// The one number of an entry. Readers take bytes, shorts and longs alike for any number without a
/// sign (section 2). Absent when it is something else.
std::optional<std::uint32_t> numberOf(Entry entry, KXSwap swap)
{
    std::uint8_t byte;
    std::uint16_t word;
    std::uint32_t number;
    if (entry.count != 1)
        return std::nullopt;
    // Narrower values are at the left of the field, whatever the byte order.
    if (entry.type == typeByte && entry.value.readUInt8To(byte))
        return byte;
    if (entry.type == typeShort && entry.value.readUInt16To(word, swap))
        return word;
    if (entry.type == typeLong && entry.value.readUInt32To(number, swap))
        return number;
    return std::nullopt;
}

std::optional<Entry> readEntry(KXPictureReader& directory, KXSwap swap)
{
    constexpr std::uint64_t valueLength = 4;
    std::uint16_t tag, type;
    std::uint32_t count;
    bool const isRead = directory.takeStep() && directory.readUInt16To(tag, swap)
        && directory.readUInt16To(type, swap) && directory.readUInt32To(count, swap);
    auto const value = isRead ? directory.readPart(valueLength) : std::nullopt;
    return value ? std::optional<Entry>({ tag, type, count, *value }) : std::nullopt;
}

/// The entries of the first directory, if they are all there.
std::optional<KXPictureReader> firstDirectory(KXPictureReader picture, KXSwap swap)
{
    constexpr std::uint64_t orderAndVersion = 4, entryLength = 12;
    std::uint32_t offset;
    std::uint16_t count;
    bool const isRead = picture.skipBytes(orderAndVersion) && picture.readUInt32To(offset, swap)
        && picture.setPosition(offset) && picture.readUInt16To(count, swap);
    return isRead ? picture.readPart(count * entryLength) : std::nullopt;
}

/// Whether a size can be a real one. TIFF itself draws no line; decoders take what would be 2 GiB
/// of pixels for damage.
constexpr bool isPossible(std::uint32_t width, std::uint32_t height)
{
    constexpr std::uint64_t mostPixels = 0x7FFFFFFF / 4;
    return std::uint64_t { width } * height <= mostPixels;
}

/// Whether an entry tells where pixels are.
bool hasPixels(Entry const& entry)
{
    bool const isOfOffsets = entry.tag == stripOffsets || entry.tag == tileOffsets
        || entry.tag == jpegInterchangeFormat;
    return isOfOffsets && entry.count && (entry.type == typeShort || entry.type == typeLong);
}

/// The size in a directory that also tells where the pixels are. Of several entries with one tag
/// the first counts; none may be damaged.
std::optional<KXSize> sizeInDirectory(KXPictureReader directory, KXSwap swap)
{
    std::optional<std::uint32_t> width, height;
    bool isOfPixels = false;
    while (directory.remainingLength()) {
        auto const entry = readEntry(directory, swap);
        if (!entry)
            return std::nullopt;
        isOfPixels = isOfPixels || hasPixels(*entry);
        auto const field = std::ranges::find(numberFields, entry->tag, &NumberField::tag);
        if (field == std::end(numberFields))
            continue;
        auto const number = numberOf(*entry, swap);
        if (!number || *number < field->least || *number > field->most)
            return std::nullopt;
        if (entry->tag == imageWidth && !width)
            width = number;
        else if (entry->tag == imageLength && !height)
            height = number;
    }
    bool const isWhole = isOfPixels && width && height && isPossible(*width, *height);
    return isWhole ? sizeOfPixels(*width, *height) : std::nullopt;
}

}

/// The size of the first picture as it is stored: decoders leave it to others to turn it upright.
std::optional<KXSize> sizeOfTIFF(KXPictureReader picture)
{
    std::uint8_t order; // The first letter of "II" or "MM".
    KXPictureReader head = picture;
    if (!head.readUInt8To(order))
        return std::nullopt;
    KXSwap const swap = order == 'M' ? KXSwap::yes : KXSwap::no;
    auto const directory = firstDirectory(picture, swap);
    return directory ? sizeInDirectory(*directory, swap) : std::nullopt;
}
