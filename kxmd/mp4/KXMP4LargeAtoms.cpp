#include "kxmd/mp4/KXMP4LargeAtomsPrivate.h"

#include "kxmd/base/KXFourCharacterCodePrivate.h"
#include "kxmd/base/KXMutableAbstractData.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <vector>

namespace {

using Range = KXMutableData::Range;

constexpr std::uint64_t smallHeader = 8, largeSizeLength = 8; // Bytes.

/// A top-level atom whose size field says that the size follows, or that there is nothing after it.
struct LargeAtom {
    std::uint64_t offset { 0 };
    std::uint64_t size { 0 }; ///< What it claims, or up to the end of the file.
    KXFourCharacterCode type {};
    bool hasLargeSize { false };
};

struct LargeAtoms {
    std::vector<LargeAtom> list; ///< In the order of their offsets.
    bool areAll { true }; ///< Whether the budget of atoms was enough.
};

std::uint64_t readUInt64OrZero(KXAbstractData& data)
{
    std::uint64_t const high = data.readUInt32OrZero(KXSwap::yes);
    return high << 32 | data.readUInt32OrZero(KXSwap::yes);
}

/// Walks the top-level atoms up to a size that makes no sense.
LargeAtoms largeAtomsOf(KXAbstractData& data)
{
    LargeAtoms found;
    data.budget() = KXParseBudget();
    std::uint64_t position = 0;
    for (std::uint64_t left = data.length(); left >= smallHeader; left = data.length() - position) {
        data.setOffset(position);
        std::uint32_t const sizeField = data.readUInt32OrZero(KXSwap::yes);
        KXFourCharacterCode const type(data.readUInt32OrZero(KXSwap::yes));
        bool const isLarge = sizeField == KXMP4SizeFollows;
        std::uint64_t const headerSize = smallHeader + (isLarge ? largeSizeLength : 0);
        std::uint64_t const size = isLarge ? readUInt64OrZero(data) : sizeField ? sizeField : left;
        if (size < headerSize || left < headerSize)
            break;
        found.areAll = data.budget().takeNode("KXMP4LargeAtoms->too many atoms");
        if (!found.areAll)
            break;
        if (isLarge || !sizeField)
            found.list.push_back({ position, size, type, isLarge });
        position += std::min(size, left);
    }
    return found;
}

bool leadsToMetadata(KXFourCharacterCode type)
{
    return type == KXFourCharacterCode("moov") || type == KXFourCharacterCode("uuid");
}

/// Gives an atom of the view a size of 32 bits; false when it is too large.
bool giveSmallSize(LargeAtom const& atom, KXMutableData& view)
{
    std::uint64_t const size = std::min(atom.size, view.length() - atom.offset)
        - (atom.hasLargeSize ? largeSizeLength : 0);
    return size <= std::numeric_limits<std::uint32_t>::max()
        && view.replaceUInt32AtWith(atom.offset, static_cast<std::uint32_t>(size));
}

/// The file as the tree understands it: 64-bit sizes become small ones, and what has such a size
/// and does not lead to metadata is missing. Takes no memory for what it shows.
KXMutableData::Ref viewWithoutLargeAtoms(KXAbstractData& data, std::vector<LargeAtom> const& atoms)
{
    KXAbstractData::Ref const unowned(KXAbstractData::Ref(), &data);
    auto const view = std::make_shared<KXMutableData>(unowned);
    std::vector<Range> hidden;
    for (LargeAtom const& atom : atoms) {
        bool const isShown = leadsToMetadata(atom.type) && giveSmallSize(atom, *view);
        if (!isShown)
            hidden.push_back({ atom.offset, std::min(atom.size, view->length() - atom.offset) });
        else if (atom.hasLargeSize)
            hidden.push_back({ atom.offset + smallHeader, largeSizeLength });
    }
    return view->removeRanges(hidden) ? view : nullptr;
}

std::uint64_t placeInFile(std::uint64_t position, std::vector<KXMutableData::Kept> const& stretches)
{
    auto const next
        = std::ranges::upper_bound(stretches, position, {}, &KXMutableData::Kept::position);
    if (next == stretches.begin())
        return position;
    auto const& stretch = *std::prev(next);
    return stretch.origin + (position - stretch.position);
}

/// Gives the atoms of the view's tree the places and sizes that they have in the file.
void moveToFile(KXMP4Atom& root, KXMutableData const& view, std::vector<LargeAtom> const& atoms)
{
    auto const stretches = view.keptBytes();
    root.visitDepthFirst([&stretches](KXMP4Atom& atom, std::size_t depth) {
        if (depth)
            atom.setOffset(placeInFile(atom.offset(), stretches));
        return true;
    });
    for (auto const& child : root.children()) {
        auto const found = std::ranges::lower_bound(atoms, child->offset(), {}, &LargeAtom::offset);
        if (found != atoms.end() && found->offset == child->offset())
            child->setSize(found->size);
    }
}

}

KXMP4Atom::Ref treeWithLargeAtoms(KXAbstractData& data)
{
    auto const large = largeAtomsOf(data);
    if (large.list.empty())
        return KXMP4Atom::atomWithAbstractData(data);
    auto const view = large.areAll ? viewWithoutLargeAtoms(data, large.list) : nullptr;
    if (!view)
        return std::make_shared<KXMP4Atom>();
    auto const reader = KXMutableAbstractData::abstractDataWithData(view);
    auto root = KXMP4Atom::atomWithAbstractData(*reader);
    data.budget() = reader->budget();
    moveToFile(*root, *view, large.list);
    return root;
}

bool hasLargeSize(KXMP4Atom const& atom, KXAbstractData& data)
{
    data.setOffset(atom.offset());
    return data.readUInt32OrZero(KXSwap::yes) == KXMP4SizeFollows;
}
