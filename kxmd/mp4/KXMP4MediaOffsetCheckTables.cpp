#include "kxmd/mp4/KXMP4EditReasonsPrivate.h"
#include "kxmd/mp4/KXMP4MediaOffsetCheckPrivate.h"

#include <algorithm>
#include <limits>

namespace {

constexpr std::uint64_t entriesOffset = 16; // Header, version and flags, entry count.

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
    std::vector<std::uint64_t> genuine;
    for (Table const& table : _tables) {
        std::string_view reason;
        bool const isForeign
            = !_tracks[table.track].hasOwnMedia && _tracks[table.track].hasForeignMedia;
        if (table.kind == TableKind::offsets32) {
            bool const isWritten = std::ranges::binary_search(written, table.offset);
            genuine.push_back(table.offset);
            reason = checkTable32(table, isWritten);
        } else if (!isForeign) {
            reason = checkTable64(table);
        }
        if (!reason.empty())
            return reason;
    }
    std::ranges::sort(genuine);
    for (std::uint64_t const offset : written) {
        if (std::ranges::binary_search(genuine, offset))
            continue;
        if (auto const reason = checkFalseTable(offset); !reason.empty())
            return reason;
    }
    return {};
}

/// ISO/IEC 14496-12, 8.7.5. An edit corrects the entries up to the first that lies in front of it:
/// each entry moves as the smallest so far does.
std::string_view KXMP4MediaOffsetCheck::checkTable32(Table const& table, bool isWritten)
{
    constexpr std::uint64_t entrySize = 4,
                            largestOffset = std::numeric_limits<std::uint32_t>::max();
    Track const& track = _tracks[table.track];
    KXMP4FieldCursor fields(_data, table.begin + 4, table.end);
    std::uint64_t const claimed = fields.number(4);
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / entrySize);
    if (isWritten && table.begin != table.offset + 8 && claimed)
        return reasons::noTable; // Its fields are taken from where those of small atoms are.
    std::uint64_t smallest = std::numeric_limits<std::uint64_t>::max();
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint64_t const entry = fields.number(entrySize);
        if (!fields.isGood())
            return {}; // The file has become shorter.
        smallest = std::min(smallest, entry);
        if (entry < _plan.start())
            continue;
        bool const isMoved = isWritten && smallest >= _plan.start();
        if (track.hasForeignMedia && (track.hasOwnMedia || isMoved))
            return reasons::mediaElsewhere;
        if (track.hasForeignMedia)
            continue;
        if (_plan.isRemoved(entry))
            return reasons::mediaRemoved;
        if (!isMoved && _plan.isKept(entry))
            continue;
        if (!isWritten)
            return reasons::tableNotCorrected;
        if (_plan.movedBy(entry) != _plan.movedBy(smallest))
            return reasons::straddlingTable;
        if (entry + static_cast<std::uint64_t>(_plan.movedBy(entry)) > largestOffset)
            return reasons::offsetPast4GiB;
    }
    bool const runsOn = isWritten && claimed > count && smallest >= _plan.start();
    return runsOn ? checkEndOfTable32(fields.position()) : std::string_view();
}

/// What stands behind a table that claims more, and is corrected unless it lies in front of the
/// edit when it is taken for an entry.
std::string_view KXMP4MediaOffsetCheck::checkEndOfTable32(std::uint64_t position)
{
    KXMP4FieldCursor fields(_data, position, _data.length());
    std::uint64_t const next = fields.number(4);
    bool const isApart = _plan.movedBy(position - 1) == _plan.movedBy(position + 3);
    auto const* const node = _outline.nodeAt(position);
    std::uint64_t const grown = next + static_cast<std::uint64_t>(node ? node->growth : 0);
    bool const isInFront = std::max(next, grown) < _plan.start();
    return fields.isGood() && isApart && isInFront ? std::string_view() : reasons::tableTooLong;
}

/// Entries of 64 bits, or the offsets of sample auxiliary information, which are never corrected.
std::string_view KXMP4MediaOffsetCheck::checkTable64(Table const& table)
{
    if (table.kind == TableKind::auxiliary)
        return checkAuxiliaryOffsets(
            { .offset = table.offset, .headerSize = table.begin - table.offset, .end = table.end },
            false);
    constexpr std::uint64_t entrySize = 8;
    KXMP4FieldCursor fields(_data, table.begin + 4, table.end);
    std::uint64_t const claimed = fields.number(4);
    std::uint64_t const count = std::min(claimed, fields.bytesLeft() / entrySize);
    for (std::uint64_t i = 0; i < count && fields.isGood(); ++i) {
        if (!_plan.isKept(fields.number(entrySize)))
            return reasons::table64;
    }
    return {};
}

/// An atom that the tree takes for a table in a place where none belongs, at `offset`.
std::string_view KXMP4MediaOffsetCheck::checkFalseTable(std::uint64_t offset)
{
    KXMP4FieldCursor fields(_data, offset + 12, _data.length());
    std::uint64_t const count = fields.number(4);
    std::uint64_t const first = count ? fields.number(4) : 0;
    bool const isApart
        = _plan.movedBy(offset) == _plan.movedBy(offset + entriesOffset + 3); // No edit in it.
    bool const isLeftAlone = fields.isGood() && isApart && first < _plan.start();
    return isLeftAlone ? std::string_view() : reasons::noTable;
}
