#include "kxmd/mp4/KXMP4EditOutlinePrivate.h"

#include "kxmd/mp4/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/KXMP4AtomTypesPrivate.h"
#include "kxmd/mp4/KXMP4EditReasonsPrivate.h"

#include <algorithm>
#include <limits>

namespace {

constexpr std::uint64_t headerSize = 8;

/// How far the parse follows the size that an atom claims. One that is never read as atoms and runs
/// past its parent is just the parent's last. Of the others some are read as atoms and some are
/// not: to tell which may take a way up the whole tree, and all of them are given their full size.
std::uint64_t endOfWalked(KXMP4Atom const& atom)
{
    std::uint64_t const end = atom.offset() + atom.size();
    KXMP4Atom const& parent = *atom.parent();
    std::uint64_t const endOfParent = parent.offset() + parent.size();
    if (end <= endOfParent || !parent.parent())
        return end;
    bool const isNeverWalked = containerRuleOfTag(atom.tag()) == KXMP4ContainerRule::never;
    return isNeverWalked ? endOfParent : end;
}

}

std::string_view KXMP4EditOutline::takePlanOfTree(KXMP4EditPlan const& plan, KXMP4Atom& root)
{
    for (auto const& edit : plan.edits()) {
        if (auto const reason = addNodes(edit); !reason.empty())
            return reason;
    }
    if (auto const reason = checkNodes(); !reason.empty())
        return reason;
    if (auto const reason = indexNodesByOffset(); !reason.empty())
        return reason;
    if (plan.edits().size() > 1) {
        if (auto const reason = checkHeaders(root); !reason.empty())
            return reason;
    }
    return visitTree(plan, root);
}

std::size_t KXMP4EditOutline::indexOfNode(KXMP4Atom const& atom)
{
    auto const [found, isNew] = _indexes.try_emplace(&atom, _nodes.size());
    if (isNew)
        _nodes.push_back({ .offset = atom.offset(), .size = atom.size() });
    return found->second;
}

/// The edited atom and those around it, up to the top of the file.
std::string_view KXMP4EditOutline::addNodes(KXMP4EditPlan::Edit const& edit)
{
    std::size_t const target = indexOfNode(*edit.atom);
    _nodes[target].isRemoved |= edit.isRemoval();
    auto const growth = static_cast<std::int64_t>(edit.inserted - edit.removed);
    std::size_t inner = target;
    for (KXMP4Atom* atom = edit.atom->parent(); atom && atom->parent(); atom = atom->parent()) {
        std::size_t const index = indexOfNode(*atom);
        Node& node = _nodes[index];
        ++node.editsInside;
        node.growth += growth;
        _nodes[inner].parent = index;
        inner = index;
        std::uint64_t const into = edit.position - node.offset; // Wraps past any size in front.
        if (node.size < headerSize || into < headerSize || into >= node.size
            || edit.removed > node.size - into)
            return reasons::sizesDoNotNest;
    }
    return {};
}

std::string_view KXMP4EditOutline::checkNodes() const
{
    for (Node const& node : _nodes) {
        if (node.parent != none) {
            Node const& parent = _nodes[node.parent];
            std::uint64_t const into = node.offset - parent.offset;
            bool const isWithin = into >= headerSize && into < parent.size
                && (!node.editsInside || node.size <= parent.size - into);
            if (!isWithin)
                return reasons::sizesDoNotNest;
        }
        std::int64_t const size = static_cast<std::int64_t>(node.size) + node.growth;
        if (size > std::int64_t { std::numeric_limits<std::uint32_t>::max() })
            return reasons::sizePast4GiB;
    }
    return {};
}

/// Whether all edits find the same atoms. Between two of them the file is parsed anew, with sizes
/// that were corrected: so each header must lie behind the one that is read before it, neither in
/// it nor back among bytes that were walked already.
std::string_view KXMP4EditOutline::checkHeaders(KXMP4Atom& root) const
{
    constexpr std::uint64_t large = 1;
    std::string_view reason;
    KXMP4Atom const* last = nullptr;
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        if (depth == 0)
            return true;
        if (last && atom.offset() < last->offset() + headerSize) {
            // In front of a 64-bit size stands a 1, which the tree takes for the size: the next
            // atom begins a byte further on. That is no harm while nothing is written there.
            bool const isInLarge = last->size() == large && atom.offset() > last->offset();
            if (!isInLarge || nodeOf(atom).editsInside)
                reason = reasons::sizesDoNotNest;
        }
        last = &atom;
        return reason.empty();
    });
    return reason;
}

/// Finds the tables, and makes sure that no atoms but those around an edit reach over it: the
/// edited file is then parsed into the same atoms again.
std::string_view KXMP4EditOutline::visitTree(KXMP4EditPlan const& plan, KXMP4Atom& root)
{
    std::string_view reason;
    std::size_t removedDepth = 0; // Of the removed atom whose children are being visited; or 0.
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        if (depth == 0)
            return true;
        if (depth <= removedDepth)
            removedDepth = 0;
        bool const isTable = dynamic_cast<KXMP4AtomSampleTable*>(&atom);
        if (removedDepth) {
            // An edit in front corrects it before it goes, also what lies behind what is removed.
            if (isTable && plan.edits().size() > 1)
                reason = reasons::noTable;
            return reason.empty();
        }
        Node const node = nodeOf(atom);
        std::size_t const ownEdits = node.editsInside + (node.isRemoved ? 1 : 0);
        if (plan.editsWithin(atom.offset(), endOfWalked(atom)) != ownEdits)
            reason = reasons::sizesDoNotNest;
        if (node.isRemoved)
            removedDepth = depth;
        else if (isTable)
            _tables.push_back(atom.offset());
        return reason.empty();
    });
    std::ranges::sort(_tables);
    return reason;
}

std::string_view KXMP4EditOutline::indexNodesByOffset()
{
    for (std::size_t i = 0; i < _nodes.size(); ++i) {
        if (!_indexesByOffset.try_emplace(_nodes[i].offset, i).second)
            return reasons::sizesDoNotNest;
    }
    return {};
}

/// For an atom that no edit concerns, one without edits.
KXMP4EditOutline::Node KXMP4EditOutline::nodeOf(KXMP4Atom const& atom) const
{
    auto const found = _indexes.find(&atom);
    return found != _indexes.end() ? _nodes[found->second] : Node();
}

KXMP4EditOutline::Node* KXMP4EditOutline::nodeAt(std::uint64_t offset)
{
    auto const found = _indexesByOffset.find(offset);
    return found != _indexesByOffset.end() ? &_nodes[found->second] : nullptr;
}
