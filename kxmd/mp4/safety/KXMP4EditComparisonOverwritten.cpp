#include "kxmd/mp4/atoms/KXMP4ChunkTablePrivate.h"
#include "kxmd/mp4/safety/KXMP4EditComparisonPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditReasonsPrivate.h"

#include <algorithm>
#include <array>

namespace {

using Layout = KXMP4ChunkTable;
using Range = KXMutableData::Range;

constexpr std::size_t pieceLength = 4096; // Bytes that are compared at once.

/// The parts of `ranges` that lie in none of `others`. Both are in the order of their positions.
std::vector<Range> rangesWithout(std::vector<Range> const& ranges, std::vector<Range> const& others)
{
    std::vector<Range> parts;
    std::uint64_t position = 0; // Up to which the ranges are done.
    auto other = others.begin();
    for (Range const& range : ranges) {
        std::uint64_t const end = range.position + range.length;
        position = std::max(position, range.position);
        while (position < end) {
            while (other != others.end() && other->position + other->length <= position)
                ++other;
            std::uint64_t const partEnd
                = other == others.end() ? end : std::min(end, other->position);
            if (position < partEnd)
                parts.push_back({ position, partEnd - position });
            position = partEnd < end ? other->position + other->length : end;
        }
    }
    return parts;
}

}

/// Whether every byte that was overwritten is the same as before, sizes and entries aside: what the
/// tree takes for a size or a table may be something else by the standards.
std::string_view KXMP4EditComparison::compareOverwritten()
{
    auto const overwritten = _edited.overwrittenOrigins();
    std::vector<Range> ranges(overwritten.begin(), overwritten.end());
    std::ranges::sort(ranges, {}, &Range::position);
    std::ranges::sort(_corrected, {}, &Range::position);
    for (Range const& range : rangesWithout(ranges, _corrected)) {
        if (auto const reason = compareRange(range); !reason.empty())
            return reason;
    }
    return {};
}

/// Whether the bytes of a range are the same as before, those that were removed aside.
std::string_view KXMP4EditComparison::compareRange(Range const& range)
{
    std::uint64_t const end = range.position + range.length;
    for (std::uint64_t at = range.position; at < end;) {
        std::uint64_t const most = std::min<std::uint64_t>(end - at, pieceLength);
        std::uint64_t const length = _map.isOneStretch(at, at + most) ? most : 1;
        if (!isEqualAt(at, length))
            return reasonForChangeIn({ at, length }, reasons::noTable);
        at += length;
    }
    return {};
}

bool KXMP4EditComparison::isEqualAt(std::uint64_t origin, std::uint64_t length) const
{
    auto const position = _map.positionOf(origin);
    std::array<std::uint8_t, pieceLength> before, after;
    _before.setOffset(origin);
    return !position
        || (_before.readBytesTo(before.data(), length)
            && _edited.readBytesToAt(after.data(), length, *position)
            && std::equal(before.data(), before.data() + length, after.data()));
}

/// Why a size, an entry or other bytes became wrong: `otherwise`, unless the edit took them for
/// entries of a table that they do not belong to.
std::string_view KXMP4EditComparison::reasonForChangeIn(
    Range const& range, std::string_view otherwise) const
{
    for (TakenTable const& taken : _takenTables) {
        std::uint64_t const entries = taken.offset + Layout::entriesOffset;
        std::uint64_t const end = std::min(
            range.position + range.length, entries + claimedEntries(taken) * Layout::entrySize);
        if (end <= std::max(range.position, entries))
            continue;
        Box const* const box = boxOfTable32(taken.offset);
        bool const hasCount = box && box->headerSize == smallHeader && box->end >= entries;
        if (!hasCount)
            return reasons::noTable;
        std::uint64_t const count = (box->end - entries) / Layout::entrySize;
        if (end > entries + count * Layout::entrySize)
            return reasons::tableTooLong;
    }
    return otherwise;
}

/// How many entries the edit takes a table to have, by the count that stood there before or stands
/// there now.
std::uint64_t KXMP4EditComparison::claimedEntries(TakenTable const& table) const
{
    std::uint32_t now = table.noOfEntries;
    if (auto const position = _map.positionOf(table.offset))
        static_cast<void>(_edited.readUInt32ToAt(now, *position + Layout::entryCountOffset));
    return std::max(table.noOfEntries, now);
}
