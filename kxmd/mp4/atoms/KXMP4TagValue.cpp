#include "kxmd/mp4/atoms/KXMP4TagValuePrivate.h"

#include "kxmd/base/KXByteBuilderPrivate.h"

#include <algorithm>

namespace {

constexpr KXFourCharacterCode coverType { "covr" };
constexpr KXFourCharacterCode valueType { "data" };
constexpr std::uint32_t valueHeaderSize = 16;

// Type indicators: QuickTime File Format, "Well-known types".
constexpr std::uint32_t isJPEG = 13;
constexpr std::uint32_t isPNG = 14;

/// Reads the size of a tag's value, and makes sure that it is one.
bool readValueSizeTo(std::uint32_t& size, KXAbstractData& data)
{
    std::uint32_t type;
    return data.readUInt32To(size, KXSwap::yes) && data.readUInt32To(type, KXSwap::yes)
        && type == valueType.value();
}

}

std::optional<std::string> readTagText(KXAbstractData& data)
{
    constexpr std::uint32_t largestValue = 270; // The longest text, and the header.
    std::uint32_t size;
    if (!readValueSizeTo(size, data) || size < valueHeaderSize || size > largestValue)
        return std::nullopt;
    data.skipBytes(8); // Type indicator and locale, whatever they hold.
    std::optional<std::string> text;
    if (!data.readStringTo(text, size - valueHeaderSize, KXStringEncodingUTF8) || text->empty())
        return std::nullopt;
    return text;
}

std::optional<std::uint32_t> readTagPictureLength(KXAbstractData& data)
{
    std::uint32_t size, pictureType;
    if (!readValueSizeTo(size, data) || !data.readUInt32To(pictureType, KXSwap::yes)
        || (pictureType != isJPEG && pictureType != isPNG))
        return std::nullopt;
    data.skipBytes(4); // Locale.
    return size - valueHeaderSize; // In 32 bits: a size below 16 wraps to more than any atom has.
}

KXData coverAtomWithJPEG(std::span<std::uint8_t const> picture)
{
    auto const length = static_cast<std::uint32_t>(picture.size());
    KXByteBuilder atom(coverAtomHeadersSize + picture.size());
    atom.appendUInt32(coverAtomHeadersSize + length);
    atom.appendCode(coverType);
    atom.appendUInt32(valueHeaderSize + length);
    atom.appendCode(valueType);
    atom.appendUInt32(isJPEG); // The version, 0, in the highest byte.
    atom.appendUInt32(0); // Locale.
    atom.appendBytes(picture);
    return atom.takeData();
}

std::uint64_t skipCoverAtomHeaders(KXAbstractData& data, std::uint64_t size)
{
    std::uint64_t const start = data.offset();
    std::uint32_t valueSize = 0;
    data.skipBytes(4);
    bool const isCover = size > coverAtomHeadersSize
        && data.readUInt32OrZero(KXSwap::yes) == coverType.value()
        && readValueSizeTo(valueSize, data);
    if (!isCover) {
        data.setOffset(start);
        return size;
    }
    data.setOffset(start + coverAtomHeadersSize);
    std::uint64_t const rest = size - coverAtomHeadersSize;
    return valueSize > valueHeaderSize ? std::min<std::uint64_t>(valueSize - valueHeaderSize, rest)
                                       : rest;
}
