#pragma once

#include "kxmd/mp4/KXMP4EditPlanPrivate.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

/// What the edits of a plan write by the rules of `KXMP4Atom`: the sizes of the atoms around the
/// edits, and the chunk offset tables of the tree, whatever they really are.
class KXMP4EditOutline {
public:
    /// An atom that is edited, or one around an edit.
    struct Node {
        std::uint64_t offset { 0 };
        std::uint64_t size { 0 };
        std::size_t parent { none }; ///< Its place in the list; none at the top of the file.
        std::size_t editsInside { 0 };
        std::int64_t growth { 0 };
        bool isRemoved { false };
        bool isSeen { false }; ///< Found in its place by whoever walks the file.
        bool isEntered { false }; ///< Its children were walked.
    };
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    /// The reason against the plan that the tree itself shows; empty when there is none.
    std::string_view takePlanOfTree(KXMP4EditPlan const& plan, KXMP4Atom& root);

    /// The node that begins at `offset`, or null.
    Node* nodeAt(std::uint64_t offset);
    std::vector<Node> const& nodes() const { return _nodes; }

    /// Where the chunk offset tables of the tree begin that outlive the edits, in order.
    std::vector<std::uint64_t> const& tables() const { return _tables; }

private:
    std::string_view addNodes(KXMP4EditPlan::Edit const& edit);
    std::size_t indexOfNode(KXMP4Atom const& atom);
    std::string_view checkNodes() const;
    std::string_view indexNodesByOffset();
    std::string_view checkHeaders(KXMP4Atom& root) const;
    Node nodeOf(KXMP4Atom const& atom) const;
    std::string_view visitTree(KXMP4EditPlan const& plan, KXMP4Atom& root);

    std::vector<Node> _nodes;
    std::unordered_map<KXMP4Atom const*, std::size_t> _indexes;
    std::unordered_map<std::uint64_t, std::size_t> _indexesByOffset;
    std::vector<std::uint64_t> _tables;
};
