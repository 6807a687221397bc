// What kind of work a movie is, and what cameras wrote into it: told of any bytes, and of movies
// that a maker of our own knows. What is taken out is that and nothing else, and the media stays.

#include "FuzzTarget.h"
#include "MovieLeaves.h"
#include "RecordingMaker.h"
#include "SameMedia.h"

#include "kxmd/mp4/KXMP4CameraData.h"
#include "kxmd/mp4/KXMP4MovieKind.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace {

using Bytes = std::vector<std::uint8_t>;

bool areSame(std::optional<KXMP4MovieKind> const& one, std::optional<KXMP4MovieKind> const& other)
{
    auto const fields = [](KXMP4MovieKind const& kind) {
        return std::array { kind.hasMovingPictures, kind.isMusic, kind.isProtected,
            kind.isDescribed };
    };
    return !one || !other ? !one == !other : fields(*one) == fields(*other);
}

std::optional<KXMP4MovieKind> kindOf(Bytes const& file)
{
    auto const data = immutableReader(file.data(), file.size());
    data->setOffset(file.size() / 2);
    auto const kind = KXMP4MovieKind::kindOfData(*data);
    KXMD_REQUIRE(data->offset() == 0);
    KXMD_REQUIRE(
        areSame(KXMP4MovieKind::kindOfData(*mutableReader(file.data(), file.size())), kind));
    KXMD_REQUIRE(areSame(KXMP4MovieKind::kindOfData(*data), kind));
    return kind;
}

/// The file without its camera's data, and what is said of that beforehand.
struct Removal {
    KXMutableData::Ref data;
    bool isWhole;
    std::optional<std::string> reason;
};

/// What must hold whatever the file is.
Removal removal(Bytes const& file)
{
    auto const source = immutableReader(file.data(), file.size());
    auto const reason = KXMP4CameraData::reasonAgainstRemovingFromData(*source);
    std::uint64_t const predicted = KXMP4CameraData::bytesInData(*source);
    KXMD_REQUIRE(KXMP4CameraData::reasonAgainstRemovingFromData(*source) == reason);

    auto const data = std::make_shared<KXMutableData>(file);
    bool const isWhole = KXMP4CameraData::removeFromData(data);
    auto const overSource = std::make_shared<KXMutableData>(source);
    KXMD_REQUIRE(KXMP4CameraData::removeFromData(overSource) == isWhole);
    KXMD_REQUIRE(std::ranges::equal(data->bytes(), overSource->bytes()));
    KXMD_REQUIRE(data->length() + predicted == file.size());
    auto const kept = data->keptBytes(); // Nothing is put in.
    KXMD_REQUIRE(std::accumulate(kept.begin(), kept.end(), std::uint64_t { 0 },
                     [](std::uint64_t sum, auto const& stretch) { return sum + stretch.length; })
        == data->length());
    KXMD_REQUIRE(predicted || std::ranges::equal(data->bytes(), file));
    return { data, isWhole, reason };
}

void requireSafety(Bytes const& file, Removal const& removal)
{
    MovieReferences const before(file);
    if (removal.reason || !before.isClear())
        return;
    KXMD_REQUIRE(removal.isWhole);
    requireSameMedia(before, file, *removal.data);
    KXMD_REQUIRE(
        !KXMP4CameraData::bytesInData(*KXMutableAbstractData::abstractDataWithData(removal.data)));
}

/// All boxes of a movie but those that tell of the camera.
std::vector<MovieLeaf> leavesOf(std::span<std::uint8_t const> file)
{
    constexpr std::string_view entered[] { "moov", "trak", "mdia", "minf", "stbl" };
    constexpr std::string_view xmp = "\xBE\x7A\xCF\xCB";
    auto leaves = MovieLeaves(file, entered).all();
    std::erase_if(leaves, [&](MovieLeaf const& leaf) {
        return leaf.path.ends_with("/udta") || leaf.path.ends_with("/meta")
            || (leaf.path.ends_with("/uuid") && leaf.payload.size() > xmp.size()
                && leaf.payload[0] == 0xBE);
    });
    return leaves;
}

/// What must hold of a movie that the standards allow.
void checkMade(Choices choices, RecordingMaker::Sizes sizes)
{
    RecordingMaker maker(choices, sizes);
    Bytes const file = maker.file();
    KXMD_REQUIRE(areSame(kindOf(file), maker.kind()));
    auto const made = removal(file);
    KXMD_REQUIRE(!made.reason && made.isWhole);
    KXMD_REQUIRE(made.data->length() + maker.cameraBytes() == file.size());
    KXMD_REQUIRE(leavesOf(made.data->bytes()) == leavesOf(file));
    requireSafety(file, made);
}

/// The same with a few bytes changed, of which nobody knows what they mean.
void checkDamaged(Choices choices, std::uint8_t damages)
{
    std::array<std::pair<std::uint16_t, std::uint8_t>, 3> changes;
    for (auto& [position, value] : changes) {
        position = choices.next<std::uint16_t>();
        value = choices.next<std::uint8_t>();
    }
    auto const sizes = damages % 2 ? RecordingMaker::Sizes::large : RecordingMaker::Sizes::small;
    Bytes file = RecordingMaker(choices, sizes).file();
    for (auto const& [position, value] : changes)
        file[position % file.size()] = value;
    static_cast<void>(kindOf(file));
    requireSafety(file, removal(file));
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    Choices choices(bytes, length);
    auto const how = choices.next<std::uint8_t>();
    if (how < 0x80) {
        checkMade(choices, RecordingMaker::Sizes::small);
        checkMade(choices, RecordingMaker::Sizes::large);
    } else if (how < 0xE0) {
        checkDamaged(choices, how);
    } else {
        auto const rest = choices.rest();
        Bytes const file(rest.begin(), rest.end());
        static_cast<void>(kindOf(file));
        requireSafety(file, removal(file));
    }
    return 0;
}
