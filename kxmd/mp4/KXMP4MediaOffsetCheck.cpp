#include "kxmd/mp4/KXMP4MediaOffsetCheckPrivate.h"

#include "kxmd/mp4/KXMP4EditReasonsPrivate.h"

#include <algorithm>

namespace {

constexpr std::uint32_t typeOf(char const (&code)[5])
{
    std::uint32_t type = 0;
    for (int i = 0; i < 4; ++i)
        type = type << 8 | static_cast<std::uint8_t>(code[i]);
    return type;
}

struct Nesting {
    std::uint32_t parent;
    std::uint32_t child;
};

constexpr std::uint32_t file = 0;

// The atoms on the way to what tells of places in the file, and to what is edited.
constexpr Nesting nestings[] {
    { file, typeOf("moov") },
    { typeOf("moov"), typeOf("trak") },
    { typeOf("trak"), typeOf("mdia") },
    { typeOf("mdia"), typeOf("minf") },
    { typeOf("minf"), typeOf("stbl") },
    { typeOf("minf"), typeOf("dinf") },
    { typeOf("moov"), typeOf("udta") },
    { typeOf("trak"), typeOf("udta") },
    { file, typeOf("meta") },
    { typeOf("moov"), typeOf("meta") },
    { typeOf("trak"), typeOf("meta") },
    { typeOf("udta"), typeOf("meta") },
    { typeOf("meta"), typeOf("ilst") },
    { file, typeOf("moof") },
    { typeOf("moof"), typeOf("traf") },
    { file, typeOf("mfra") },
};

bool isEnteredIn(std::uint32_t child, std::uint32_t parent)
{
    return std::ranges::any_of(nestings,
        [&](Nesting const& nesting) { return nesting.parent == parent && nesting.child == child; });
}

}

KXMP4MediaOffsetCheck::KXMP4MediaOffsetCheck(
    KXAbstractData& data, KXMP4EditPlan const& plan, KXMP4EditOutline& outline)
    : _data(data)
    , _plan(plan)
    , _outline(outline)
{
}

std::string_view KXMP4MediaOffsetCheck::reason()
{
    _open.push_back({ .type = file, .end = _data.length() });
    while (!_open.empty()) {
        if (auto const box = nextBox(_open.back())) {
            if (auto const reason = take(*box); !reason.empty())
                return reason;
        } else {
            _position = _open.back().end;
            _open.pop_back();
        }
    }
    if (auto const reason = checkNodesSeen(); !reason.empty())
        return reason;
    return checkTables();
}

/// ISO/IEC 14496-12, 4.2. Absent at the end of the list, and where a size makes no sense.
std::optional<KXMP4MediaOffsetCheck::Box> KXMP4MediaOffsetCheck::nextBox(Level const& level)
{
    constexpr std::uint64_t sizeFollows = 1, smallHeader = 8, largeHeader = 16;
    KXMP4FieldCursor fields(_data, _position, level.end);
    Box box { .offset = _position };
    std::uint64_t size = fields.number(4);
    box.type = static_cast<std::uint32_t>(fields.number(4));
    if (size == 0 && level.type == file)
        size = level.end - _position; // To the end of the file.
    if (size == sizeFollows) {
        size = fields.number(8);
        box.headerSize = largeHeader;
    }
    if (!fields.isGood() || size < std::max(box.headerSize, smallHeader))
        return {};
    box.size = size;
    box.end = _position + std::min(size, level.end - _position);
    return box;
}

std::string_view KXMP4MediaOffsetCheck::take(Box const& box)
{
    std::uint32_t const parentType = _open.back().type;
    auto* const node = _outline.nodeAt(box.offset);
    bool const isRemoved = node && node->isRemoved;
    bool const isEntered = !isRemoved && isEnteredIn(box.type, parentType);
    if (auto const reason = checkPlace(box, isEntered); !reason.empty())
        return reason;
    if (isEntered) {
        enter(box);
        return {};
    }
    _position = box.end;
    return isRemoved ? std::string_view() : takeLeaf(box, parentType);
}

/// Whether the edits inside of an atom are those that correct its size.
std::string_view KXMP4MediaOffsetCheck::checkPlace(Box const& box, bool isEntered)
{
    auto* const node = _outline.nodeAt(box.offset);
    std::size_t const corrected = node ? node->editsInside + (node->isRemoved ? 1 : 0) : 0;
    if (_plan.editsWithin(box.offset, box.end) != corrected)
        return reasons::sizeNotCorrected;
    if (!node)
        return {};
    // Neither a 64-bit size nor one that stands for the rest of the file is ever written.
    bool const isPlain = box.headerSize == 8 && box.size == node->size;
    if (corrected && !isPlain)
        return reasons::sizeNotCorrected;
    node->isSeen = true;
    node->isEntered = isEntered;
    return {};
}

/// Continues with the atom's children.
void KXMP4MediaOffsetCheck::enter(Box const& box)
{
    _position = box.offset + box.headerSize;
    _open.push_back({ .type = box.type, .end = box.end });
    switch (box.type) {
    case typeOf("trak"):
        _tracks.emplace_back();
        break;
    case typeOf("moof"):
        _fragmentStart = box.offset;
        [[fallthrough]];
    case typeOf("traf"):
        _fragmentBase = _fragmentStart;
        break;
    case typeOf("meta"): {
        // QuickTime's has no version and flags in front of its children.
        KXMP4FieldCursor fields(_data, _position, box.end);
        if (!fields.number(4) && fields.isGood())
            _position = fields.position();
        break;
    }
    default:
        break;
    }
}

/// An atom that may itself tell of places in the file.
std::string_view KXMP4MediaOffsetCheck::takeLeaf(Box const& box, std::uint32_t parentType)
{
    auto const is = [&](char const(&parent)[5], char const(&type)[5]) {
        return parentType == typeOf(parent) && box.type == typeOf(type);
    };
    auto const addTable = [&](TableKind kind) {
        std::uint64_t const begin = box.offset + box.headerSize;
        _tables.push_back({ box.offset, begin, box.end, _tracks.size() - 1, kind });
        return std::string_view();
    };
    if (is("stbl", "stco"))
        return addTable(TableKind::offsets32);
    if (is("stbl", "co64"))
        return addTable(TableKind::offsets64);
    if (is("stbl", "saio"))
        return addTable(TableKind::auxiliary);
    if (is("dinf", "dref"))
        takeDataReferences(box);
    if (is("traf", "tfhd"))
        return checkFragmentHeader(box);
    if (is("traf", "trun"))
        return checkRun(box);
    if (is("traf", "saio"))
        return checkAuxiliaryOffsets(box, true);
    if (is("mfra", "tfra"))
        return checkFragmentAccess(box);
    if (is("meta", "iloc"))
        return checkItemLocations(box);
    if (parentType == file && box.type == typeOf("sidx"))
        return checkSegmentIndex(box);
    return {};
}

/// Whether the tree's atoms around the edits are atoms by the standards as well. Those within one
/// that is not walked, as a sample entry, are taken by the tree's word.
std::string_view KXMP4MediaOffsetCheck::checkNodesSeen() const
{
    auto const& nodes = _outline.nodes();
    bool const areSeen = std::ranges::all_of(nodes, [&nodes](KXMP4EditOutline::Node const& node) {
        bool const isInWalked
            = node.parent == KXMP4EditOutline::none || nodes[node.parent].isEntered;
        return node.isSeen || !isInWalked;
    });
    return areSeen ? std::string_view() : reasons::sizesDoNotNest;
}
