#include "kxmd/mp4/KXMP4EditReasonsPrivate.h"
#include "kxmd/mp4/KXMP4MediaOffsetCheckPrivate.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace {

// Of a 32-bit table, from the first byte of its atom on and in bytes.
constexpr std::uint64_t headerSize = 8;
constexpr std::uint64_t entryCountOffset = 12;
constexpr std::uint64_t entriesOffset = 16;
constexpr std::uint64_t entrySize = 4;

}

/// Which media a track has: its own, or that of other files (ISO/IEC 14496-12, 8.7.2).
void KXMP4MediaOffsetCheck::takeDataReferences(Box const& box)
{
    constexpr std::uint64_t smallestEntry = 12, selfContained = 1;
    Track& track = _tracks.back();
    KXMP4FieldCursor fields(_data, box.offset + box.headerSize + 4, box.end);
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

std::string_view KXMP4MediaOffsetCheck::checkTables()
{
    auto const& written = _outline.tables();
    if (std::ranges::adjacent_find(written) != written.end())
        return reasons::sizesDoNotNest; // One table, corrected twice.
    for (Table const& table : _tables) {
        std::string_view reason;
        bool const isForeign
            = !_tracks[table.track].hasOwnMedia && _tracks[table.track].hasForeignMedia;
        if (table.kind == TableKind::offsets32)
            reason = checkTable32(table, std::ranges::binary_search(written, table.offset));
        else if (!isForeign)
            reason = checkTable64(table);
        if (!reason.empty())
            return reason;
    }
    std::erase_if(_tables, [](Table const& table) { return table.kind != TableKind::offsets32; });
    bool const areLookAlikesLeftAlone = std::ranges::all_of(
        written, [this](std::uint64_t offset) { return isTableOrLeftAlone(offset); });
    return areLookAlikesLeftAlone ? std::string_view() : reasons::noTable;
}

/// ISO/IEC 14496-12, 8.7.5. An edit corrects the entries up to the first that lies in front of it:
/// each entry moves as the smallest so far does.
std::string_view KXMP4MediaOffsetCheck::checkTable32(Table const& table, bool isWritten)
{
    // Behind a 64-bit size the fields are not where the edit takes them from.
    bool const isCorrected = isWritten && table.begin == table.offset + headerSize;
    KXMP4FieldCursor fields(_data, table.begin + 4, table.end);
    std::uint64_t const claimed = fields.number(4);
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / entrySize);
    std::uint64_t smallest = std::numeric_limits<std::uint64_t>::max();
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint64_t const entry = fields.number(entrySize);
        if (!fields.isGood())
            return {}; // The file has become shorter.
        smallest = std::min(smallest, entry);
        auto const reason = checkEntry32(entry, smallest, isCorrected, _tracks[table.track]);
        if (!reason.empty())
            return reason;
    }
    bool const isStoppedWithin = isCorrected && smallest < _plan.start();
    if (!isWritten || isStoppedWithin || !isEntryChanged(table.offset, isCorrected ? count : 0))
        return {};
    bool const hasCount = isCorrected && table.end >= table.offset + entriesOffset;
    return hasCount ? reasons::tableTooLong : reasons::noTable;
}

/// An entry that is corrected as far as `smallest`, the smallest up to it, lets it be.
std::string_view KXMP4MediaOffsetCheck::checkEntry32(
    std::uint64_t entry, std::uint64_t smallest, bool isCorrected, Track const& track) const
{
    constexpr std::uint64_t largestOffset = std::numeric_limits<std::uint32_t>::max();
    if (entry < _plan.start())
        return {};
    bool const isMoved = isCorrected && smallest >= _plan.start();
    if (track.hasForeignMedia)
        return track.hasOwnMedia || isMoved ? reasons::mediaElsewhere : std::string_view();
    if (_plan.isRemoved(entry))
        return reasons::mediaRemoved;
    if (!isMoved && _plan.isKept(entry))
        return {};
    if (!isCorrected)
        return reasons::tableNotCorrected;
    if (_plan.movedBy(entry) != _plan.movedBy(smallest))
        return reasons::straddlingTable;
    if (entry + static_cast<std::uint64_t>(_plan.movedBy(entry)) > largestOffset)
        return reasons::offsetPast4GiB;
    return {};
}

/// Whether an edit that takes the atom at `offset` for a 32-bit table, and has changed its entries
/// in front of the one with the number `index`, goes on to change that one.
bool KXMP4MediaOffsetCheck::isEntryChanged(std::uint64_t offset, std::uint64_t index)
{
    auto const count = largestFieldSeen(offset, offset + entryCountOffset);
    if (count && *count <= index)
        return false;
    auto const entry = largestFieldSeen(offset, offset + entriesOffset + index * entrySize);
    return !entry || *entry >= _plan.start();
}

/// The largest number that the edits may see in the four bytes at `position`, which they take for a
/// field of the atom at `offset`. Absent when it is not known, as where the file ends.
///
/// An edit writes the sizes of the atoms around it before it looks at tables. The one that inserts
/// is the last: no size is larger meanwhile than it was or than it will be.
std::optional<std::uint64_t> KXMP4MediaOffsetCheck::largestFieldSeen(
    std::uint64_t offset, std::uint64_t position)
{
    constexpr std::uint64_t width = 4;
    KXMP4FieldCursor fields(_data, position, _data.length());
    std::uint64_t const number = fields.number(width);
    if (!fields.isGood() || _plan.editsWithin(offset, position + width))
        return {};
    for (std::uint64_t place = position - width + 1; place < position + width; ++place) {
        auto const* const node = _outline.nodeAt(place);
        if (!node || !node->editsInside)
            continue;
        if (place < position)
            return {}; // The lower bytes of a size may become anything.
        auto const shift = 8 * (place - position);
        std::uint64_t const grown = node->size + static_cast<std::uint64_t>(node->growth);
        return std::max(number, number - (node->size >> shift) + (grown >> shift));
    }
    return number;
}

/// Entries of 64 bits, or the offsets of sample auxiliary information, which are never corrected.
std::string_view KXMP4MediaOffsetCheck::checkTable64(Table const& table)
{
    if (table.kind == TableKind::auxiliary)
        return checkAuxiliaryOffsets(
            { .offset = table.offset, .headerSize = table.begin - table.offset, .end = table.end },
            false);
    constexpr std::uint64_t wideEntrySize = 8;
    KXMP4FieldCursor fields(_data, table.begin + 4, table.end);
    std::uint64_t const claimed = fields.number(4);
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / wideEntrySize);
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        if (!_plan.isKept(fields.number(wideEntrySize)))
            return reasons::table64;
    }
    return {};
}

/// Whether what the tree takes for a table at `offset` is one, or else is not changed.
bool KXMP4MediaOffsetCheck::isTableOrLeftAlone(std::uint64_t offset)
{
    // The tables were found in the order of the file, and none reaches into another.
    if (std::ranges::binary_search(_tables, offset, {}, &Table::offset))
        return true;
    std::uint64_t const firstField = offset + entryCountOffset;
    std::uint64_t const end = offset + entriesOffset + entrySize;
    auto const next = std::ranges::lower_bound(_tables, end, {}, &Table::offset);
    bool const isInTable = next != _tables.begin() && std::prev(next)->end > firstField;
    return !isInTable && !isEntryChanged(offset, 0); // In a table, fields may become anything.
}
