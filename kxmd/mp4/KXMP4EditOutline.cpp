#include "kxmd/mp4/KXMP4EditOutlinePrivate.h"

#include "kxmd/mp4/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/KXMP4EditReasonsPrivate.h"

#include <algorithm>
#include <limits>

namespace {

constexpr std::uint64_t headerSize = 8;

/// Where the walk goes on behind an atom. One without children that runs past its parent is the
/// parent's last, whatever it claims.
std::uint64_t endOfWalked(KXMP4Atom& atom)
{
    std::uint64_t const end = atom.offset() + atom.size();
    KXMP4Atom* const parent = atom.parent();
    if (!parent->parent() || atom.isContainerAtom())
        return end;
    return std::min(end, parent->offset() + parent->size());
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

/// Finds the tables, and makes sure that the edited file is parsed into the same atoms again: none
/// but those around an edit may reach over it.
std::string_view KXMP4EditOutline::visitTree(KXMP4EditPlan const& plan, KXMP4Atom& root)
{
    std::string_view reason;
    std::size_t removedDepth = 0; // Of the removed atom whose children are being visited; or 0.
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        if (depth == 0 || (removedDepth && depth > removedDepth))
            return true;
        removedDepth = 0;
        auto const index = _indexes.find(&atom);
        Node const node = index != _indexes.end() ? _nodes[index->second] : Node();
        std::size_t const expected = node.editsInside + (node.isRemoved ? 1 : 0);
        if (plan.editsWithin(atom.offset(), atom.offset() + atom.size()) != expected
            && plan.editsWithin(atom.offset(), endOfWalked(atom)) != expected) {
            reason = reasons::sizesDoNotNest;
            return false;
        }
        if (node.isRemoved)
            removedDepth = depth;
        else if (dynamic_cast<KXMP4AtomSampleTable*>(&atom))
            _tables.push_back(atom.offset());
        return true;
    });
    std::ranges::sort(_tables);
    for (std::size_t i = 0; i < _nodes.size(); ++i) {
        if (!_indexesByOffset.try_emplace(_nodes[i].offset, i).second)
            return reasons::sizesDoNotNest;
    }
    return reason;
}

KXMP4EditOutline::Node* KXMP4EditOutline::nodeAt(std::uint64_t offset)
{
    auto const found = _indexesByOffset.find(offset);
    return found != _indexesByOffset.end() ? &_nodes[found->second] : nullptr;
}
