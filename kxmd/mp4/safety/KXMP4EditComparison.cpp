#include "kxmd/mp4/safety/KXMP4EditComparisonPrivate.h"

#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp4/KXMP4LargeAtomsPrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/safety/KXMP4EditReasonsPrivate.h"

#include <algorithm>
#include <limits>

namespace {

struct Nesting {
    KXFourCharacterCode parent;
    KXFourCharacterCode child;
};

constexpr KXFourCharacterCode file {};

// The boxes that lead to those with file offsets, and to those that are edited.
constexpr Nesting nestings[] {
    { file, "moov" },
    { "moov", "trak" },
    { "trak", "mdia" },
    { "mdia", "minf" },
    { "minf", "stbl" },
    { "minf", "dinf" },
    { "stbl", "stsd" },
    { "stsd", "mp4a" },
    { "mp4a", "wave" },
    { "moov", "udta" },
    { "trak", "udta" },
    { file, "meta" },
    { "moov", "meta" },
    { "trak", "meta" },
    { "udta", "meta" },
    { "meta", "ilst" },
    { file, "moof" },
    { "moof", "traf" },
    { file, "mfra" },
};

bool isEnteredIn(KXFourCharacterCode child, KXFourCharacterCode parent)
{
    return std::ranges::any_of(nestings,
        [&](Nesting const& nesting) { return nesting.parent == parent && nesting.child == child; });
}

constexpr std::uint64_t largestSize = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t sizeLength = 4, largeHeader = 16; // Bytes.

}

KXMP4EditComparison::KXMP4EditComparison(
    KXAbstractData& before, KXMutableData::Ref const& edited, KXMP4Atom& root)
    : _before(before)
    , _after(KXMutableAbstractData::abstractDataWithData(edited))
    , _edited(*edited)
    , _map(*edited)
    , _takenTables(takenTablesOf(root))
{
}

std::vector<KXMP4EditComparison::TakenTable> KXMP4EditComparison::takenTablesOf(KXMP4Atom& root)
{
    std::vector<TakenTable> tables;
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t) {
        if (auto const* const table = dynamic_cast<KXMP4AtomSampleTable*>(&atom))
            tables.push_back({ table->offset(), table->noOfEntries() });
        return true;
    });
    std::ranges::sort(tables, {}, &TakenTable::offset);
    return tables;
}

std::string_view KXMP4EditComparison::reason(bool isFinished)
{
    for (auto const compare : { &KXMP4EditComparison::compareBoxes,
             &KXMP4EditComparison::compareTables, &KXMP4EditComparison::compareOverwritten }) {
        if (auto const reason = (this->*compare)(); !reason.empty())
            return reason;
    }
    return isFinished ? std::string_view() : reasonAgainstUnfinished();
}

std::string_view KXMP4EditComparison::compareBoxes()
{
    // Of a file that was cut off, anything may be lost.
    constexpr std::uint64_t anything = std::numeric_limits<std::uint64_t>::max();
    _open.push_back(
        { .type = file, .end = { _before.length(), _after->length() }, .lost = anything });
    while (!_open.empty()) {
        auto const before = nextBoxBefore();
        auto const after = nextBoxAfter();
        if (before.has_value() != after.has_value())
            return reasonForChangeIn({ _position.before, smallHeader }, reasons::sizesDoNotNest);
        if (!before) {
            _position = _open.back().end;
            _open.pop_back();
        } else if (auto const reason = take({ *before, *after }); !reason.empty()) {
            return reason;
        }
    }
    return {};
}

/// The next box that outlives the edit; absent at the end of the list.
std::optional<KXMP4EditComparison::Box> KXMP4EditComparison::nextBoxBefore()
{
    for (;;) {
        auto const box = boxAt(_before, _position.before, _open.back().end.before);
        if (!box || _map.positionOf(box->offset))
            return box;
        _position.before = box->end;
    }
}

/// The next box that was not inserted by it.
std::optional<KXMP4EditComparison::Box> KXMP4EditComparison::nextBoxAfter()
{
    for (;;) {
        auto const box = boxAt(*_after, _position.after, _open.back().end.after);
        if (!box || _map.originOf(box->offset))
            return box;
        _position.after = box->end;
    }
}

/// ISO/IEC 14496-12, 4.2. Absent at the end of the list, and where a size makes no sense.
std::optional<KXMP4EditComparison::Box> KXMP4EditComparison::boxAt(
    KXAbstractData& data, std::uint64_t position, std::uint64_t end) const
{
    KXMP4FieldCursor fields(data, position, end);
    Box box { .offset = position };
    box.size = fields.number(4);
    box.type = KXFourCharacterCode(static_cast<std::uint32_t>(fields.number(4)));
    if (box.size == 0 && _open.back().type == file)
        box.size = end - position; // To the end of the file.
    if (box.size == KXMP4SizeFollows) {
        box.size = fields.number(8);
        box.headerSize = largeHeader;
    }
    if (!fields.isGood() || box.size < std::max(box.headerSize, smallHeader))
        return {};
    box.end = position + std::min(box.size, end - position);
    return box;
}

std::string_view KXMP4EditComparison::take(Boxes const& boxes)
{
    auto const& [before, after] = boxes;
    // Headers that were overwritten are found by `compareSizes` and `compareOverwritten`.
    bool const hasWholeHeader = _map.isOneStretch(before.offset, before.offset + before.headerSize);
    if (!hasWholeHeader || _map.originOf(after.offset) != before.offset)
        return reasonForChangeIn({ before.offset, smallHeader }, reasons::sizesDoNotNest);
    if (auto const reason = compareSizes(boxes); !reason.empty())
        return reason;
    if (isEnteredIn(before.type, _open.back().type)) {
        enter(boxes);
        return {};
    }
    _position = { before.end, after.end };
    return takeLeaf(boxes);
}

/// Whether a box has grown by what was inserted into it, less what was removed from it.
std::string_view KXMP4EditComparison::compareSizes(Boxes const& boxes)
{
    auto const& [before, after] = boxes;
    std::uint64_t const length = before.end - before.offset;
    std::uint64_t const lengthAfter = _map.endOfBytesBefore(before.end) - after.offset;
    bool const isEdited = !_map.isOneStretch(before.offset, before.end);
    bool const runsPastItsParent = before.size - length > _open.back().lost;
    if (isEdited && runsPastItsParent)
        return reasons::sizesDoNotNest; // Nobody knows which bytes belong to it.
    std::uint64_t const expected = before.size + lengthAfter - length;
    bool const isSmall = before.headerSize == smallHeader;
    if (after.size != expected) {
        if (isSmall && expected > largestSize)
            return reasons::sizePast4GiB;
        return reasonForChangeIn({ before.offset, sizeLength }, reasons::sizeNotCorrected);
    }
    if (isEdited && isSmall)
        _corrected.push_back({ before.offset, sizeLength });
    else if (isEdited)
        _corrected.push_back({ before.offset + smallHeader, largeHeader - smallHeader });
    return {};
}

/// Continues with the children of a box.
void KXMP4EditComparison::enter(Boxes const& boxes)
{
    auto const& [before, after] = boxes;
    _position = KXMP4Pair { before.offset, after.offset } + before.headerSize;
    _open.push_back({ .type = before.type,
        .end = { before.end, after.end },
        .lost = before.size - (before.end - before.offset) });
    constexpr KXFourCharacterCode track { "trak" }, fragment { "moof" }, trackFragment { "traf" },
        sampleDescriptions { "stsd" }, soundEntry { "mp4a" }, metadata { "meta" };
    if (before.type == track)
        _tracks.emplace_back();
    if (before.type == fragment)
        _fragmentStart = { before.offset, after.offset };
    if (before.type == trackFragment)
        _fragmentBase = _fragmentStart;
    if (before.type == sampleDescriptions)
        _position = _position + 8; // Version and flags, count of entries.
    if (before.type == soundEntry)
        skipFieldsOfSoundEntry(boxes);
    if (before.type == metadata) {
        // QuickTime's has no version and flags before its children.
        auto fields = fieldsOf(boxes);
        auto const [versionBefore, versionAfter] = fields.number(4);
        if (fields.isGood() && !versionBefore && !versionAfter)
            _position = fields.position();
    }
}

/// ISO/IEC 14496-12, 12.2.3, and QuickTime's versions 1 and 2.
void KXMP4EditComparison::skipFieldsOfSoundEntry(Boxes const& boxes)
{
    auto fields = fieldsOf(boxes);
    fields.skip(8); // Reserved, data reference index.
    std::uint64_t const version = fields.number(2).before;
    std::uint64_t const further = version == 1 ? 16 : version == 2 ? 36 : 0;
    _position = _position + 28 + further;
}

/// The fields after the headers.
KXMP4FieldPair KXMP4EditComparison::fieldsOf(Boxes const& boxes)
{
    auto const& [before, after] = boxes;
    return { { _before, before.offset + before.headerSize, before.end },
        { *_after, after.offset + after.headerSize, after.end } };
}

/// A box that may itself hold file offsets.
std::string_view KXMP4EditComparison::takeLeaf(Boxes const& boxes)
{
    auto const is = [&](KXFourCharacterCode parent, KXFourCharacterCode type) {
        return _open.back().type == parent && boxes.before.type == type;
    };
    auto const addTable = [&](TableKind kind) {
        _tables.push_back({ boxes, _tracks.size() - 1, kind });
        return std::string_view();
    };
    if (is("stbl", "stco"))
        return addTable(TableKind::offsets32);
    if (is("stbl", "co64"))
        return addTable(TableKind::offsets64);
    if (is("stbl", "saio"))
        return addTable(TableKind::auxiliary);
    if (is("dinf", "dref"))
        takeDataReferences(boxes.before);
    if (is("traf", "tfhd"))
        return compareFragmentHeaders(boxes);
    if (is("traf", "trun"))
        return compareRuns(boxes);
    if (is("traf", "saio"))
        return compareAuxiliaryOffsets(boxes, true);
    if (is("mfra", "tfra"))
        return compareFragmentAccess(boxes);
    if (is("meta", "iloc"))
        return compareItemLocations(boxes);
    if (is(file, "sidx"))
        return compareSegmentIndexes(boxes);
    return {};
}
