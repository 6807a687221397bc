// Trees of atoms that a host makes by hand, with children that have no link to their parent: what
// is found in them is what a plain list of the links says.

#include "Choices.h"
#include "FuzzTarget.h"

#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace {

using Found = std::vector<KXMP4Atom*>;

constexpr std::string_view tags[] { "moov", "trak", "\xC2\xA9nam", "x", "", "longer than four" };

/// What was said of an atom.
struct Node {
    KXMP4Atom::Ref atom = std::make_shared<KXMP4Atom>();
    std::optional<std::string> tag {};
    Node* parent { nullptr };
    std::vector<Node*> children {};
};

using Nodes = std::array<Node, 8>;

template <class List> auto const& oneOf(Choices& choices, List& list)
{
    return list[choices.next<std::uint8_t>() % std::size(list)];
}

void removeChild(Node& node, Node& child)
{
    node.atom->removeChild(*child.atom);
    std::erase(node.children, &child);
}

/// Changes a link or a tag. Links go from earlier atoms to later ones, never in a circle.
void change(Nodes& nodes, Choices& choices)
{
    auto const kind = choices.next<std::uint8_t>();
    std::size_t const at = kind / 8 % (nodes.size() - 1);
    std::size_t const below = at + 1 + choices.next<std::uint8_t>() % (nodes.size() - 1 - at);
    Node &node = nodes[at], &child = nodes[below];
    constexpr std::size_t mostChildren = 4; // A search passes through them again and again.
    switch (kind % 8) {
    case 0:
        removeChild(node, child);
        break;
    case 1:
        node.atom->removeAllChildren();
        node.children.clear();
        break;
    case 2:
        child.atom->setParent(nullptr);
        child.parent = nullptr;
        break;
    case 3:
    case 4:
        child.tag = oneOf(choices, tags);
        child.atom->setTag(*child.tag);
        break;
    case 5:
        child.atom->setParent(node.atom.get());
        child.parent = &node;
        [[fallthrough]];
    default:
        node.atom->addChild(nullptr);
        if (node.children.size() < mostChildren) {
            node.atom->addChild(child.atom);
            node.children.push_back(&child);
        }
    }
}

void appendChildrenAt(Node const& node, std::string_view step, std::vector<Node const*>& found)
{
    for (Node const* const child : node.children) {
        if (!child->parent)
            appendChildrenAt(*child, step, found);
        else if (child->tag == step)
            found.push_back(child);
    }
}

/// What a search must find, by steps and not by a path.
Found atomsAt(Node const& node, std::vector<std::string_view> const& steps)
{
    std::vector<Node const*> matched;
    if (!node.parent)
        appendChildrenAt(node, steps.front(), matched);
    else if (node.tag == steps.front())
        matched.push_back(&node);
    for (std::size_t i = 1; i < steps.size(); ++i) {
        std::vector<Node const*> next;
        for (Node const* const one : matched)
            appendChildrenAt(*one, steps[i], next);
        matched = next;
    }
    Found atoms;
    for (Node const* const one : matched)
        atoms.push_back(one->atom.get());
    return atoms;
}

void appendSubtree(Node const& node, Found& atoms)
{
    atoms.push_back(node.atom.get());
    for (Node const* const child : node.children)
        appendSubtree(*child, atoms);
}

void check(Node const& node)
{
    KXMD_REQUIRE(node.atom->tag() == node.tag.value_or(""));
    KXMD_REQUIRE(node.atom->parent() == (node.parent ? node.parent->atom.get() : nullptr));
    KXMD_REQUIRE(node.atom->description() == "MP4 Atom:" + node.tag.value_or("(null)") + " - 0");
    Node const* top = &node;
    std::string path = node.tag.value_or("");
    for (; top->parent; path = top->tag.value_or("") + '.' + path)
        top = top->parent;
    KXMD_REQUIRE(node.atom->rootAtom() == top->atom.get());
    KXMD_REQUIRE(node.atom->fullPath() == path);
    Found expected, visited;
    appendSubtree(node, expected);
    node.atom->visitDepthFirst([&visited](KXMP4Atom& atom, std::size_t) {
        visited.push_back(&atom);
        return true;
    });
    KXMD_REQUIRE(visited == expected);
    KXMD_REQUIRE(node.atom->allAtomsWithPath("").empty());
}

void checkSearch(Node const& node, Choices& choices)
{
    std::vector<std::string_view> steps;
    std::string path;
    for (int left = 1 + choices.next<std::uint8_t>() % 3; left; --left) {
        steps.push_back(oneOf(choices, tags));
        path += (steps.size() > 1 ? "/" : "") + std::string(steps.back());
    }
    if (path.empty())
        return;
    Found found;
    for (auto const& atom : node.atom->allAtomsWithPath(path))
        found.push_back(atom.get());
    KXMD_REQUIRE(found == atomsAt(node, steps));
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    Choices choices(bytes, length);
    Nodes nodes;
    constexpr int mostChanges = 200;
    for (int left = mostChanges; left && choices.areLeft(); --left) {
        change(nodes, choices);
        checkSearch(oneOf(choices, nodes), choices);
    }
    std::ranges::for_each(nodes, check);
    return 0;
}
