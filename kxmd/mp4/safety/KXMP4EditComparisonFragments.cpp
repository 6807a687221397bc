#include "kxmd/mp4/safety/KXMP4EditComparisonPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditReasonsPrivate.h"

#include <algorithm>

// File offsets in fragments, indexes and items, none of which is ever corrected.

/// Whether a place in the file holds the same byte as before. One past the end of the file must
/// stay past it.
bool KXMP4EditComparison::leadsToTheSame(KXMP4Pair place) const
{
    if (place.before >= _before.length())
        return place.after >= _edited.length();
    return _map.originOf(place.after) == place.before;
}

/// ISO/IEC 14496-12, 8.8.7. Without a base of its own, a fragment's offsets count from its start.
std::string_view KXMP4EditComparison::compareFragmentHeaders(Boxes const& boxes)
{
    constexpr std::uint64_t baseDataOffsetPresent = 1;
    auto fields = fieldsOf(boxes);
    bool const hasBase = fields.number(4).before & baseDataOffsetPresent;
    fields.skip(4); // Track.
    KXMP4Pair const base = hasBase ? fields.number(8) : _fragmentStart;
    if (!fields.isGood())
        return {};
    _fragmentBase = base;
    return leadsToTheSame(base) ? std::string_view() : reasons::fragment;
}

/// ISO/IEC 14496-12, 8.8.8.
std::string_view KXMP4EditComparison::compareRuns(Boxes const& boxes)
{
    constexpr std::uint64_t dataOffsetPresent = 1;
    auto fields = fieldsOf(boxes);
    bool const hasOffset = fields.number(4).before & dataOffsetPresent;
    fields.skip(4); // Sample count.
    if (!hasOffset)
        return {}; // After the run before it.
    auto const offset = static_cast<std::int32_t>(fields.number(4).before);
    auto const fromBase = static_cast<std::uint64_t>(std::int64_t { offset });
    return leadsToTheSame(_fragmentBase + fromBase) ? std::string_view() : reasons::fragment;
}

/// ISO/IEC 14496-12, 8.7.9. In the file, or in a fragment from its base on.
std::string_view KXMP4EditComparison::compareAuxiliaryOffsets(Boxes const& boxes, bool isInFragment)
{
    constexpr std::uint64_t typePresent = 1;
    auto fields = fieldsOf(boxes);
    std::uint64_t const versionAndFlags = fields.number(4).before;
    if (versionAndFlags & typePresent)
        fields.skip(8);
    std::uint64_t const claimed = fields.number(4).before;
    unsigned const width = versionAndFlags >> 24 ? 8 : 4;
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / width);
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        KXMP4Pair const offset = fields.number(width);
        if (!leadsToTheSame(isInFragment ? _fragmentBase + offset : offset))
            return reasons::auxiliary;
    }
    return {};
}

/// ISO/IEC 14496-12, 8.8.10.
std::string_view KXMP4EditComparison::compareFragmentAccess(Boxes const& boxes)
{
    auto fields = fieldsOf(boxes);
    unsigned const width = fields.number(4).before >> 24 ? 8 : 4;
    fields.skip(4); // Track.
    std::uint64_t const lengths = fields.number(4).before; // Of three numbers, two bits each.
    std::uint64_t const rest = (lengths >> 4 & 3) + (lengths >> 2 & 3) + (lengths & 3) + 3;
    std::uint64_t const claimed = fields.number(4).before;
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / (2 * width + rest));
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        fields.skip(width); // Time.
        if (!leadsToTheSame(fields.number(width)))
            return reasons::fragmentIndex;
        fields.skip(rest);
    }
    return {};
}

/// ISO/IEC 14496-12, 8.16.3. What it refers to lies in one piece after it, at a distance and with
/// sizes that an edit in between would make wrong.
std::string_view KXMP4EditComparison::compareSegmentIndexes(Boxes const& boxes)
{
    constexpr std::uint64_t sizeBits = 0x7FFFFFFF;
    auto fields = fieldsOf(boxes);
    unsigned const width = fields.number(4).before >> 24 ? 8 : 4;
    fields.skip(8 + width); // Identifier, time scale, earliest time.
    std::uint64_t const distance = std::min(fields.number(width).before, _before.length());
    fields.skip(2);
    std::uint64_t const count = fields.number(2).before;
    KXMP4Pair end = KXMP4Pair { boxes.before.end, boxes.after.end } + distance;
    bool isKept = leadsToTheSame(end);
    for (std::uint64_t i = 0; i < count && fields.isGood() && isKept; ++i) {
        end = end + (fields.number(4).before & sizeBits);
        fields.skip(8);
        isKept = leadsToTheSame(end);
    }
    return isKept ? std::string_view() : reasons::segmentIndex;
}

/// ISO/IEC 14496-12, 8.11.3.
std::string_view KXMP4EditComparison::compareItemLocations(Boxes const& boxes)
{
    auto fields = fieldsOf(boxes);
    std::uint64_t const version = fields.number(4).before >> 24;
    if (version > 2)
        return {};
    std::uint64_t const sizes = fields.number(2).before; // Four bits each.
    auto const sizeAt
        = [sizes](unsigned shift) { return static_cast<unsigned>(sizes >> shift & 0xF); };
    unsigned const offsetSize = sizeAt(12), lengthSize = sizeAt(8), baseSize = sizeAt(4);
    unsigned const indexSize = version ? sizeAt(0) : 0;
    if (std::max(offsetSize, baseSize) > 8)
        return {}; // No such number.
    std::uint64_t const count = fields.number(version < 2 ? 2 : 4).before;
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        fields.skip(version < 2 ? 2 : 4); // Identifier.
        std::uint64_t const method = version ? fields.number(2).before & 0xF : 0;
        fields.skip(2); // Data reference.
        KXMP4Pair const base = fields.number(baseSize);
        if (!compareItemExtents(fields, base, indexSize, offsetSize, lengthSize, method == 0))
            return reasons::items;
    }
    return {};
}

/// Whether each extent of an item is the same; goes past them.
bool KXMP4EditComparison::compareItemExtents(KXMP4FieldPair& fields, KXMP4Pair base,
    unsigned indexSize, unsigned offsetSize, unsigned lengthSize, bool isInFile) const
{
    std::uint64_t count = fields.number(2).before;
    std::uint64_t const extentSize = indexSize + offsetSize + lengthSize;
    if (!extentSize)
        count = std::min<std::uint64_t>(count, 1); // All the same, and of no bytes.
    for (; count && fields.isGood(); --count) {
        fields.skip(indexSize);
        KXMP4Pair const offset = base + fields.number(offsetSize);
        fields.skip(lengthSize);
        if (isInFile && fields.isGood() && !leadsToTheSame(offset))
            return false;
    }
    return true;
}
