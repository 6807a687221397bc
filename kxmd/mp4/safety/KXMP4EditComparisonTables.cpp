#include "kxmd/mp4/atoms/KXMP4ChunkTablePrivate.h"
#include "kxmd/mp4/safety/KXMP4EditComparisonPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditReasonsPrivate.h"

#include <algorithm>
#include <limits>

namespace {

using Layout = KXMP4ChunkTable;

constexpr std::uint64_t largestOffset = std::numeric_limits<std::uint32_t>::max();

}

/// Which media a track has: its own, or that of other files (ISO/IEC 14496-12, 8.7.2).
void KXMP4EditComparison::takeDataReferences(Box const& box)
{
    constexpr std::uint64_t smallestEntry = 12, selfContained = 1;
    Track& track = _tracks.back();
    KXMP4FieldCursor fields(_before, box.offset + box.headerSize + 4, box.end);
    for (std::uint64_t count = fields.number(4); count; --count) {
        std::uint64_t const start = fields.position();
        std::uint64_t const size = fields.number(4);
        fields.skip(4); // Type.
        bool const isOwn = fields.number(4) & selfContained;
        if (!fields.isGood() || size < smallestEntry)
            return;
        (isOwn ? track.hasOwnMedia : track.hasForeignMedia) = true;
        fields.skip(start + size - fields.position());
    }
}

std::string_view KXMP4EditComparison::compareTables()
{
    for (Table const& table : _tables) {
        Track const& track = _tracks[table.track];
        bool const isForeign = track.hasForeignMedia && !track.hasOwnMedia;
        std::string_view reason;
        if (table.kind == TableKind::offsets32)
            reason = compareTable32(table);
        else if (!isForeign && table.kind == TableKind::offsets64)
            reason = compareTable64(table);
        else if (!isForeign)
            reason = compareAuxiliaryOffsets(table.boxes, false);
        if (!reason.empty())
            return reason;
    }
    return {};
}

/// ISO/IEC 14496-12, 8.7.5.
std::string_view KXMP4EditComparison::compareTable32(Table const& table)
{
    auto fields = fieldsOf(table.boxes);
    fields.skip(4); // Version and flags.
    std::uint64_t const claimed = fields.number(4).before;
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / Layout::entrySize);
    std::uint64_t const entries = fields.position().before;
    for (std::uint64_t i = 0; i < count; ++i) {
        KXMP4Pair const entry = fields.number(Layout::entrySize);
        auto const reason = compareEntry32(entry, table);
        if (reason.empty())
            continue;
        Range const place { entries + i * Layout::entrySize, Layout::entrySize };
        return entry.isEqual() ? reason : reasonForChangeIn(place, reason);
    }
    // After a 64-bit size the entries are not where the edit looks for them.
    if (table.boxes.before.headerSize == smallHeader)
        _corrected.push_back({ entries, count * Layout::entrySize });
    return {};
}

std::string_view KXMP4EditComparison::compareEntry32(KXMP4Pair entry, Table const& table) const
{
    Track const& track = _tracks[table.track];
    bool const isSame = leadsToTheSame(entry);
    if (track.hasForeignMedia) { // The table does not say which file the chunk is in.
        bool const isRight = entry.isEqual() && (isSame || !track.hasOwnMedia);
        return isRight ? std::string_view() : reasons::mediaElsewhere;
    }
    if (isSame)
        return {};
    std::uint64_t const growth = _edited.length() - _before.length();
    bool const isInFile = entry.before < _before.length();
    auto const place = isInFile ? _map.positionOf(entry.before) : entry.before + growth;
    if (!place)
        return reasons::mediaRemoved;
    if (!isCorrected(table.boxes.before))
        return reasons::tableNotCorrected;
    return *place > largestOffset ? reasons::offsetPast4GiB : reasons::straddlingTable;
}

/// Entries of 64 bits, which are never corrected.
std::string_view KXMP4EditComparison::compareTable64(Table const& table)
{
    constexpr std::uint64_t wideEntrySize = 8;
    auto fields = fieldsOf(table.boxes);
    fields.skip(4); // Version and flags.
    std::uint64_t const claimed = fields.number(4).before;
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / wideEntrySize);
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        if (!leadsToTheSame(fields.number(wideEntrySize)))
            return reasons::table64;
    }
    return {};
}

/// The 32-bit table at `offset` by the standards; null where there is none.
KXMP4EditComparison::Box const* KXMP4EditComparison::boxOfTable32(std::uint64_t offset) const
{
    auto const found = std::ranges::find_if(_tables, [offset](Table const& table) {
        return table.kind == TableKind::offsets32 && table.boxes.before.offset == offset;
    });
    return found == _tables.end() ? nullptr : &found->boxes.before;
}

/// Whether the edit corrects the entries of a table: the tree takes it for one, and they are not
/// moved on by a 64-bit size.
bool KXMP4EditComparison::isCorrected(Box const& table) const
{
    return table.headerSize == smallHeader
        && std::ranges::binary_search(_takenTables, table.offset, {}, &TakenTable::offset);
}

/// Why the edit could not be finished: it ran past the end of the file, in an atom to be removed or
/// in a table.
std::string_view KXMP4EditComparison::reasonAgainstUnfinished()
{
    bool const isInTable = std::ranges::any_of(_tables, [this](Table const& table) {
        auto fields = fieldsOf(table.boxes);
        fields.skip(4); // Version and flags.
        std::uint64_t const claimed = fields.number(4).before;
        return table.kind == TableKind::offsets32 && isCorrected(table.boxes.before)
            && claimed > fields.bytesLeft() / Layout::entrySize;
    });
    return isInTable ? reasons::tableTooLong : reasons::pastTheEnd;
}
