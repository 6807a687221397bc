#pragma once

#include "support/Builders.h"

// Pictures of HEIF (ISO/IEC 23008-12): what is needed to measure them.

namespace build {

inline Bytes ispe(std::uint32_t width, std::uint32_t height)
{
    return atom("ispe", u32(0), u32(width), u32(height));
}
inline Bytes irot(std::uint32_t quarters) { return atom("irot", u8(quarters)); }
inline Bytes pitm(std::uint32_t item) { return atom("pitm", u32(0), u16(item)); }

/// An entry of an association box of version 0 whose numbers have a byte.
inline Bytes association(std::uint32_t item, std::vector<std::uint32_t> const& properties)
{
    Bytes numbers;
    for (std::uint32_t const property : properties)
        numbers = join(std::move(numbers), u8(property));
    return join(u16(item), u8(static_cast<std::uint32_t>(properties.size())), numbers);
}

template <class... Entries> Bytes ipma(Entries const&... entries)
{
    return atom("ipma", u32(0), u32(static_cast<std::uint32_t>(sizeof...(entries))), entries...);
}

/// The metadata of pictures, with these boxes after the handler.
template <class... Boxes> Bytes pictureMetadata(Boxes const&... boxes)
{
    return atom("meta", u32(0), hdlr("pict"), boxes...);
}

inline Bytes heicType() { return atom("ftyp", text("heic"), u32(0), text("mif1heic")); }

/// A picture of item 1 with these boxes of properties.
inline Bytes heifAround(Bytes const& propertyBoxes)
{
    return join(heicType(), pictureMetadata(pitm(1), atom("iprp", propertyBoxes)));
}

/// A picture with all of these properties.
template <class... Properties> Bytes heifOf(Properties const&... properties)
{
    std::vector<std::uint32_t> numbers;
    while (numbers.size() < sizeof...(properties))
        numbers.push_back(static_cast<std::uint32_t>(numbers.size()) + 1);
    return heifAround(join(atom("ipco", properties...), ipma(association(1, numbers))));
}

/// The metadata of a picture with nothing but a size.
inline Bytes heifMetadata(std::uint32_t width, std::uint32_t height)
{
    return pictureMetadata(
        pitm(1), atom("iprp", atom("ipco", ispe(width, height)), ipma(association(1, { 1 }))));
}

inline Bytes heif(std::uint32_t width, std::uint32_t height)
{
    return join(heicType(), heifMetadata(width, height));
}

/// Properties of two sizes: 40 by 30 and 7 by 8.
inline Bytes twoSizes() { return atom("ipco", ispe(40, 30), ispe(7, 8)); }

}
