#include "kxmd/image/KXPictureSizeWalksPrivate.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <vector>

// HEIF is ISO/IEC 23008-12; AVIF is HEIF with pictures of AV1. A section without a standard is one
// of ISO/IEC 14496-12, where the boxes come from.

namespace {

struct Box {
    KXFourCharacterCode type;
    KXPictureReader content;
};

/// The next box of a list (4.2). Absent when it reaches past the list's end. A size of 0, "up to
/// the end of the file", is refused too: only media data have it, and what is looked for comes
/// before them then.
std::optional<Box> readBox(KXPictureReader& list)
{
    constexpr std::uint32_t wideSizeFollows = 1;
    std::uint64_t const start = list.position();
    std::uint32_t narrowSize;
    KXFourCharacterCode type;
    if (!list.takeStep() || !list.readUInt32To(narrowSize, KXSwap::yes) || !list.readCodeTo(type))
        return std::nullopt;
    std::uint64_t size = narrowSize;
    if (narrowSize == wideSizeFollows) {
        std::uint32_t high, low;
        if (!list.readUInt32To(high, KXSwap::yes) || !list.readUInt32To(low, KXSwap::yes))
            return std::nullopt;
        size = std::uint64_t { high } << 32 | low;
    }
    std::uint64_t const headerSize = list.position() - start;
    if (size < headerSize)
        return std::nullopt;
    auto const content = list.readPart(size - headerSize);
    return content ? std::optional<Box>({ type, *content }) : std::nullopt;
}

/// The content of the first box of a type in the rest of a list.
std::optional<KXPictureReader> findBox(KXPictureReader list, KXFourCharacterCode type)
{
    while (auto const box = readBox(list)) {
        if (box->type == type)
            return box->content;
    }
    return std::nullopt;
}

struct FullHeader {
    std::uint8_t version { 0 };
    std::uint32_t flags { 0 };
};

/// Version and flags, with which the content of many boxes begins (4.2).
bool readFullHeaderTo(FullHeader& header, KXPictureReader& content)
{
    std::uint32_t versionAndFlags;
    bool const isRead = content.readUInt32To(versionAndFlags, KXSwap::yes);
    header = { static_cast<std::uint8_t>(versionAndFlags >> 24), versionAndFlags & 0xFFFFFF };
    return isRead;
}

/// The number of an item, which versions after the first of a box store in 32 bits.
bool readItemTo(std::uint32_t& item, KXPictureReader& content, std::uint8_t version)
{
    if (version > 0)
        return content.readUInt32To(item, KXSwap::yes);
    std::uint16_t narrow;
    bool const isRead = content.readUInt16To(narrow, KXSwap::yes);
    item = narrow;
    return isRead;
}

/// The boxes of the file's metadata (8.11.1), if they describe pictures (ISO/IEC 23008-12, 6.2).
std::optional<KXPictureReader> findMetadata(KXPictureReader const& picture)
{
    FullHeader header;
    auto metadata = findBox(picture, "meta");
    if (!metadata || !readFullHeaderTo(header, *metadata))
        return std::nullopt;
    auto handler = findBox(*metadata, "hdlr");
    if (!handler)
        return metadata; // Decoders do without.
    constexpr std::uint64_t predefinedLength = 4; // 8.4.3
    KXFourCharacterCode type;
    bool const isOfPictures = readFullHeaderTo(header, *handler)
        && handler->skipBytes(predefinedLength) && handler->readCodeTo(type) && type == "pict";
    return isOfPictures ? metadata : std::nullopt;
}

/// The number of the item that is the picture (8.11.4): others are its tiles, its transparency, its
/// preview, or texts.
std::optional<std::uint32_t> primaryItem(KXPictureReader const& metadata)
{
    FullHeader header;
    std::uint32_t item;
    auto primary = findBox(metadata, "pitm");
    bool const isRead = primary && readFullHeaderTo(header, *primary)
        && readItemTo(item, *primary, header.version);
    return isRead ? std::optional(item) : std::nullopt;
}

/// The associations of one item with properties, each of a byte or two.
struct Associations {
    KXPictureReader list;
    bool areWide;
};

/// What an association box (ISO/IEC 23008-12, 9.3) lists for an item. Absent when that is nothing.
std::optional<Associations> associationsInBox(KXPictureReader box, std::uint32_t item)
{
    FullHeader header;
    std::uint32_t entryCount;
    if (!readFullHeaderTo(header, box) || !box.readUInt32To(entryCount, KXSwap::yes))
        return std::nullopt;
    bool const areWide = header.flags & 1;
    for (; entryCount && box.takeStep(); --entryCount) {
        std::uint32_t entryItem;
        std::uint8_t count;
        if (!readItemTo(entryItem, box, header.version) || !box.readUInt8To(count))
            return std::nullopt;
        auto const list = box.readPart(std::uint64_t { count } * (areWide ? 2 : 1));
        if (!list)
            return std::nullopt;
        if (entryItem == item)
            return Associations { *list, areWide };
    }
    return std::nullopt;
}

/// The same of the first of several association boxes that has the item.
std::optional<Associations> findAssociations(KXPictureReader properties, std::uint32_t item)
{
    while (auto const box = readBox(properties)) {
        if (box->type != "ipma")
            continue;
        if (auto const associations = associationsInBox(box->content, item))
            return associations;
    }
    return std::nullopt;
}

/// Reads the number of a property, from 1; 0 stands for none. The uppermost bit tells whether it is
/// essential.
bool readPropertyNumberTo(std::uint16_t& number, Associations& associations)
{
    if (associations.areWide) {
        bool const isRead = associations.list.readUInt16To(number, KXSwap::yes);
        number &= 0x7FFF;
        return isRead;
    }
    std::uint8_t narrow;
    bool const isRead = associations.list.readUInt8To(narrow);
    number = narrow & 0x7F;
    return isRead;
}

std::optional<Box> propertyWithNumber(KXPictureReader container, std::uint16_t number)
{
    while (auto const box = readBox(container)) {
        if (--number == 0)
            return box;
    }
    return std::nullopt;
}

/// The properties of an item in the order in which they apply, at most as many as a byte counts.
/// Absent when there are none, or one is not there.
std::optional<std::vector<Box>> propertiesOfItem(
    KXPictureReader const& properties, std::uint32_t item)
{
    auto const container = findBox(properties, "ipco");
    auto associations = findAssociations(properties, item);
    if (!container || !associations)
        return std::nullopt;
    std::vector<Box> found;
    std::uint16_t number;
    while (readPropertyNumberTo(number, *associations)) {
        if (!number)
            continue;
        auto const property = propertyWithNumber(*container, number);
        if (!property)
            return std::nullopt;
        found.push_back(*property);
    }
    return found;
}

/// The size of the picture as it is coded (ISO/IEC 23008-12, 6.5.3).
std::optional<KXSize> codedSize(std::vector<Box> const& properties)
{
    auto const found = std::ranges::find(properties, KXFourCharacterCode("ispe"), &Box::type);
    if (found == properties.end())
        return std::nullopt;
    KXPictureReader content = found->content;
    FullHeader header;
    std::uint32_t width, height;
    bool const isRead = readFullHeaderTo(header, content)
        && content.readUInt32To(width, KXSwap::yes) && content.readUInt32To(height, KXSwap::yes);
    return isRead ? sizeOfPixels(width, height) : std::nullopt;
}

/// The size of a picture after it is turned (ISO/IEC 23008-12, 6.5.10).
std::optional<KXSize> turnedSize(KXSize size, KXPictureReader rotation)
{
    std::uint8_t quarters; // Of a turn, in the lowest two bits.
    if (!rotation.readUInt8To(quarters))
        return std::nullopt;
    return quarters & 1 ? KXSize { size.height, size.width } : size;
}

/// Of whole numbers. They, and the products of those in real files, are exact.
struct Fraction {
    double numerator { 0 };
    double denominator { 1 };
};

bool readFractionTo(Fraction& fraction, KXPictureReader& content)
{
    std::uint32_t numerator, denominator;
    if (!content.readUInt32To(numerator, KXSwap::yes)
        || !content.readUInt32To(denominator, KXSwap::yes) || !denominator)
        return false;
    fraction = { static_cast<double>(std::bit_cast<std::int32_t>(numerator)),
        static_cast<double>(denominator) };
    return true;
}

/// Where an aperture begins whose centre is `offset` after that of the side.
Fraction startOfAperture(Fraction aperture, Fraction offset, double side)
{
    double const twiceSpace = side * aperture.denominator - aperture.numerator;
    return { 2 * offset.numerator * aperture.denominator + twiceSpace * offset.denominator,
        2 * offset.denominator * aperture.denominator };
}

/// How many pixels of a side an aperture shows from pixel `first` on; it may reach past both ends.
double lengthWithin(double side, double first, Fraction aperture)
{
    double const last = std::floor(first - 1 + (aperture.numerator / aperture.denominator + 0.5));
    return std::min(last, side - 1) - std::max(first, 0.0) + 1;
}

/// The size of a picture after it is cropped (ISO/IEC 23008-12, 6.5.9; ISO/IEC 14496-12, 12.1.4).
std::optional<KXSize> croppedSize(KXSize size, KXPictureReader clap)
{
    Fraction width, height, right, down;
    if (!readFractionTo(width, clap) || !readFractionTo(height, clap)
        || !readFractionTo(right, clap) || !readFractionTo(down, clap))
        return std::nullopt;
    Fraction const left = startOfAperture(width, right, size.width);
    Fraction const top = startOfAperture(height, down, size.height);
    // Half a pixel belongs to the aperture on the left and not at the top: as libheif has it, which
    // decodes these pictures for most programs.
    double const firstColumn = std::trunc(left.numerator / left.denominator);
    double const firstRow = std::trunc((top.numerator + top.denominator / 2) / top.denominator);
    KXSize const cropped { lengthWithin(size.width, firstColumn, width),
        lengthWithin(size.height, firstRow, height) };
    return cropped.width > 0 && cropped.height > 0 ? std::optional(cropped) : std::nullopt;
}

}

/// The size as it is shown: after whatever turns and crops the picture.
std::optional<KXSize> sizeOfHEIF(KXPictureReader picture)
{
    auto const metadata = findMetadata(picture);
    if (!metadata)
        return std::nullopt;
    auto const item = primaryItem(*metadata);
    auto const allProperties = findBox(*metadata, "iprp");
    if (!item || !allProperties)
        return std::nullopt;
    auto const properties = propertiesOfItem(*allProperties, *item);
    auto size = properties ? codedSize(*properties) : std::nullopt;
    if (!size)
        return std::nullopt;
    for (auto const& property : *properties) {
        if (property.type == "irot")
            size = turnedSize(*size, property.content);
        else if (property.type == "clap")
            size = croppedSize(*size, property.content);
        if (!size)
            return std::nullopt;
    }
    return size;
}
