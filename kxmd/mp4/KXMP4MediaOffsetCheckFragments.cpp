#include "kxmd/mp4/KXMP4EditReasonsPrivate.h"
#include "kxmd/mp4/KXMP4MediaOffsetCheckPrivate.h"

#include <algorithm>

// Offsets of fragments and items, none of which is ever corrected.

/// The fields behind the header.
KXMP4FieldCursor KXMP4MediaOffsetCheck::fieldsOf(Box const& box)
{
    return { _data, box.offset + box.headerSize, box.end };
}

/// ISO/IEC 14496-12, 8.8.7. Without a base of its own, a fragment's offsets count from its start.
std::string_view KXMP4MediaOffsetCheck::checkFragmentHeader(Box const& box)
{
    constexpr std::uint64_t baseDataOffsetPresent = 1;
    auto fields = fieldsOf(box);
    bool const hasBase = fields.number(4) & baseDataOffsetPresent;
    fields.skip(4); // Track.
    std::uint64_t const base = hasBase ? fields.number(8) : _fragmentStart;
    if (!fields.isGood())
        return {};
    _fragmentBase = base;
    return hasBase && !_plan.isKept(base) ? reasons::fragment : std::string_view();
}

/// Whether what lies that far from the fragment's base moves as the base does.
bool KXMP4MediaOffsetCheck::isFragmentOffsetKept(std::uint64_t offsetFromBase) const
{
    std::uint64_t const place = _fragmentBase + offsetFromBase;
    if (place >= _data.length())
        return true;
    // A base of its own was found to stay where it is.
    return !_plan.isRemoved(place) && _plan.movedBy(place) == _plan.movedBy(_fragmentBase);
}

/// ISO/IEC 14496-12, 8.8.8.
std::string_view KXMP4MediaOffsetCheck::checkRun(Box const& box)
{
    constexpr std::uint64_t dataOffsetPresent = 1;
    auto fields = fieldsOf(box);
    bool const hasOffset = fields.number(4) & dataOffsetPresent;
    fields.skip(4); // Sample count.
    if (!hasOffset)
        return {}; // Behind the run in front of it.
    auto const offset = static_cast<std::int32_t>(fields.number(4));
    auto const fromBase = static_cast<std::uint64_t>(std::int64_t { offset });
    return isFragmentOffsetKept(fromBase) ? std::string_view() : reasons::fragment;
}

/// ISO/IEC 14496-12, 8.7.9. In the file, or in a fragment from its base on.
std::string_view KXMP4MediaOffsetCheck::checkAuxiliaryOffsets(Box const& box, bool isInFragment)
{
    constexpr std::uint64_t typePresent = 1;
    auto fields = fieldsOf(box);
    std::uint64_t const versionAndFlags = fields.number(4);
    if (versionAndFlags & typePresent)
        fields.skip(8);
    std::uint64_t const claimed = fields.number(4);
    unsigned const width = versionAndFlags >> 24 ? 8 : 4;
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / width);
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        std::uint64_t const offset = fields.number(width);
        if (isInFragment ? !isFragmentOffsetKept(offset) : !_plan.isKept(offset))
            return reasons::auxiliary;
    }
    return {};
}

/// ISO/IEC 14496-12, 8.8.10.
std::string_view KXMP4MediaOffsetCheck::checkFragmentAccess(Box const& box)
{
    auto fields = fieldsOf(box);
    unsigned const width = fields.number(4) >> 24 ? 8 : 4;
    fields.skip(4); // Track.
    std::uint64_t const lengths = fields.number(4); // Of three numbers, two bits each.
    std::uint64_t const rest = (lengths >> 4 & 3) + (lengths >> 2 & 3) + (lengths & 3) + 3;
    std::uint64_t const claimed = fields.number(4);
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / (2 * width + rest));
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        fields.skip(width); // Time.
        if (!_plan.isKept(fields.number(width)))
            return reasons::fragmentIndex;
        fields.skip(rest);
    }
    return {};
}

/// ISO/IEC 14496-12, 8.16.3. What it refers to lies in one piece behind it, at a distance and with
/// sizes that an edit in between would make wrong.
std::string_view KXMP4MediaOffsetCheck::checkSegmentIndex(Box const& box)
{
    constexpr std::uint64_t sizeBits = 0x7FFFFFFF;
    auto fields = fieldsOf(box);
    unsigned const width = fields.number(4) >> 24 ? 8 : 4;
    fields.skip(8 + width); // Identifier, time scale, earliest time.
    std::uint64_t const distance = fields.number(width);
    fields.skip(2);
    std::uint64_t const count = fields.number(2);
    std::uint64_t end = box.end + std::min(distance, _data.length());
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        end += fields.number(4) & sizeBits;
        fields.skip(8);
    }
    return _plan.editsWithin(box.offset, end) ? reasons::segmentIndex : std::string_view();
}

/// ISO/IEC 14496-12, 8.11.3.
std::string_view KXMP4MediaOffsetCheck::checkItemLocations(Box const& box)
{
    auto fields = fieldsOf(box);
    std::uint64_t const version = fields.number(4) >> 24;
    if (version > 2)
        return {};
    std::uint64_t const sizes = fields.number(2); // Four bits each.
    auto const sizeAt
        = [sizes](unsigned shift) { return static_cast<unsigned>(sizes >> shift & 0xF); };
    unsigned const offsetSize = sizeAt(12), lengthSize = sizeAt(8), baseSize = sizeAt(4);
    unsigned const indexSize = version ? sizeAt(0) : 0;
    if (std::max(offsetSize, baseSize) > 8)
        return {}; // No such number.
    std::uint64_t const count = fields.number(version < 2 ? 2 : 4);
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        fields.skip(version < 2 ? 2 : 4); // Identifier.
        std::uint64_t const method = version ? fields.number(2) & 0xF : 0;
        fields.skip(2); // Data reference.
        std::uint64_t const base = fields.number(baseSize);
        if (!areItemExtentsKept(fields, base, indexSize, offsetSize, lengthSize, method == 0))
            return reasons::items;
    }
    return {};
}

/// Whether each extent of an item stays where it is; goes past them.
bool KXMP4MediaOffsetCheck::areItemExtentsKept(KXMP4FieldCursor& fields, std::uint64_t base,
    unsigned indexSize, unsigned offsetSize, unsigned lengthSize, bool isInFile)
{
    std::uint64_t count = fields.number(2);
    std::uint64_t const extentSize = indexSize + offsetSize + lengthSize;
    if (!extentSize)
        count = std::min<std::uint64_t>(count, 1); // All the same, and of no bytes.
    for (; count && fields.isGood(); --count) {
        fields.skip(indexSize);
        std::uint64_t const offset = base + fields.number(offsetSize);
        fields.skip(lengthSize);
        if (isInFile && fields.isGood() && !_plan.isKept(offset))
            return false;
    }
    return true;
}
