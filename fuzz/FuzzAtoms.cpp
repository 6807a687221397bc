// The atom tree of any bytes.

#include "FuzzTarget.h"

#include "kxmd/mp4/atoms/KXMP4Atom.h"

namespace {

/// Checks the links of a tree; returns how many atoms it has.
std::size_t checkedAtoms(KXMP4Atom& root, std::size_t length)
{
    std::size_t count = 0;
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        ++count;
        KXMD_REQUIRE((depth == 0) == (atom.parent() == nullptr));
        KXMD_REQUIRE(atom.offset() <= length);
        KXMD_REQUIRE(depth == 0 || atom.size() > 0);
        KXMD_REQUIRE(!atom.description().empty());
        std::uint64_t last = 0;
        for (auto const& child : atom.children()) {
            KXMD_REQUIRE(child->parent() == &atom);
            KXMD_REQUIRE(child->offset() >= last);
            last = child->offset();
        }
        return true;
    });
    return count;
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    auto const root = KXMP4Atom::atomWithAbstractData(*immutableReader(bytes, length));
    std::size_t const count = checkedAtoms(*root, length);
    constexpr std::size_t mostAtoms = 1u << 20;
    KXMD_REQUIRE(count <= mostAtoms + 1);

    struct Place {
        char const* path;
        bool isInTrack;
    };
    for (auto const& [path, isInTrack] :
        { Place { "moov/trak", true }, Place { "moov/trak/mdia/minf/stbl/stsd", true },
            Place { "moov/udta/meta/ilst/covr", false } }) {
        for (auto const& atom : root->allAtomsWithPath(path)) {
            KXMD_REQUIRE(atom->rootAtom() == root.get());
            KXMD_REQUIRE((atom->trackAtom() != nullptr) == isInTrack);
            (void)atom->trackType();
            KXMD_REQUIRE(atom->rootIsParsed());
            KXMD_REQUIRE(atom->isContainerAtom() || atom->children().empty());
            (void)atom->codecInfo();
        }
    }
    // One atom by itself, in both ways.
    auto const reader = immutableReader(bytes, length),
               readerAgain = immutableReader(bytes, length);
    auto const made = KXMP4Atom::atomForParent(nullptr, *reader);
    KXMP4Atom parsed;
    parsed.parseWithParent(nullptr, *readerAgain);
    if (made) {
        KXMD_REQUIRE(made->size() == parsed.size() && made->tag() == parsed.tag());
        KXMD_REQUIRE(reader->offset() == readerAgain->offset());
    }
    // The same through a reader without windows.
    auto const again = KXMP4Atom::atomWithAbstractData(*mutableReader(bytes, length));
    constexpr std::size_t fewAtoms = 300; // The texts grow with the square of the depth.
    if (count <= fewAtoms) {
        KXMD_REQUIRE(
            root->recursiveDescriptionWithInset(0) == again->recursiveDescriptionWithInset(0));
        KXMD_REQUIRE(root->allPaths() == again->allPaths());
    }
    return 0;
}
