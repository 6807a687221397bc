#include "kxmd/mp4/KXMP4CameraData.h"
#include "kxmd/mp4/KXMP4CameraDataAtomsPrivate.h"
#include "kxmd/mp4/KXMP4LargeAtomsPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditCheckPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditReasonsPrivate.h"

#include <algorithm>
#include <string_view>

namespace {

/// Whether the tree has lost its way between the atoms of the movie, and cannot know what follows.
bool hasLargeSizeWithin(KXMP4Atom& root)
{
    constexpr std::string_view paths[] { "moov", "moov/trak" };
    return std::ranges::any_of(paths, [&root](std::string_view path) {
        return std::ranges::any_of(root.allAtomsWithPath(path), [](auto const& atom) {
            auto const children = atom->children();
            return std::ranges::any_of(
                children, [](auto const& child) { return child->size() == KXMP4SizeFollows; });
        });
    });
}

}

std::optional<std::string> KXMP4CameraData::reasonAgainstRemovingFromData(KXAbstractData& data)
{
    auto const root = treeWithLargeAtoms(data);
    bool const isWhole = data.budget().takeNode("KXMP4CameraData->too many atoms");
    if (!cameraDataAtoms(*root, data))
        return "the file has too much metadata";
    if (!isWhole)
        return std::string(reasons::tooManyAtoms);
    if (hasLargeSizeWithin(*root))
        return std::string(reasons::largeSize);
    return reasonAgainstEditByTree(&removeFromData, data, *root, isWhole);
}
