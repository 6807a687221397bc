#include "kxmd/mp4/KXMP4KeyNamesPrivate.h"

#include "kxmd/mp4/KXMP4InnerAtomsPrivate.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <string_view>

namespace {

// Not what cameras write: make, model, software, creation date, place, comment.
constexpr std::string_view descriptiveNames[] { "title", "displayname", "artist", "album",
    "album_artist", "albumartist", "author", "composer", "description", "director", "episode_id",
    "genre", "performer", "producer", "show", "synopsis" };

constexpr std::string_view quickTimePrefix = "com.apple.quicktime.";

/// A key's name in lower case; empty for one that is longer than any that counts.
std::string nameOf(KXAbstractData& data, KXMP4InnerAtom const& key)
{
    constexpr std::uint64_t longestName = 64;
    std::array<std::uint8_t, longestName> bytes;
    data.setOffset(key.payload);
    std::uint64_t const length = key.payloadLength();
    if (length > longestName || !data.readBytesTo(bytes.data(), length))
        return {};
    std::string name(bytes.begin(), bytes.begin() + length);
    std::ranges::transform(name, name.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return name;
}

bool isDescriptive(std::string_view name)
{
    if (name.starts_with(quickTimePrefix))
        name.remove_prefix(quickTimePrefix.size());
    return std::ranges::find(descriptiveNames, name) != std::end(descriptiveNames);
}

}

std::vector<bool> descriptiveKeys(KXAbstractData& data, KXMP4Atom const& keys)
{
    constexpr std::uint64_t entriesOffset = 16; // After header, version, flags and count.
    std::vector<bool> answers;
    visitInnerAtoms(
        data, keys.offset() + entriesOffset, keys.offset() + keys.size(), [&](auto const& key) {
            answers.push_back(isDescriptive(nameOf(data, key)));
            return true;
        });
    return answers;
}
