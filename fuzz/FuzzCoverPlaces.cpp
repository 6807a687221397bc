// The place for a cover in music that has none: made as it was told, with nothing lost, and good
// for a cover afterwards.

#include "FuzzTarget.h"
#include "MovieLeaves.h"
#include "MovieMaker.h"
#include "RecordingMaker.h"
#include "SameMedia.h"

#include "kxmd/core/KXMDCoverPlace.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp4/KXMP4MovieKind.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Music of a few frames; whether it is enough of them to tell.
bool appendFrames(Bytes& file, Choices& choices)
{
    struct Frame {
        std::array<std::uint8_t, 4> header;
        std::size_t length; // ISO/IEC 11172-3, 2.4.3.1.
    };
    constexpr Frame frames[] { { { 0xFF, 0xFB, 0x90, 0x00 }, 417 },
        { { 0xFF, 0xFA, 0x92, 0x00 }, 418 }, { { 0xFF, 0xF3, 0x80, 0x00 }, 208 },
        { { 0xFF, 0xE3, 0x88, 0x00 }, 576 }, { { 0xFF, 0xFB, 0x98, 0x00 }, 576 } };
    Frame const& frame = frames[choices.next<std::uint8_t>() % std::size(frames)];
    unsigned const count = choices.next<std::uint8_t>() % 5;
    for (unsigned i = 0; i < count; ++i) {
        file.insert(file.end(), frame.header.begin(), frame.header.end());
        file.resize(file.size() + frame.length - frame.header.size(), 'm');
    }
    auto const end = choices.next<std::uint8_t>() % 3;
    if (end == 1) { // An ID3v1 tag, of 128 bytes.
        file.insert(file.end(), { 'T', 'A', 'G' });
        for (int i = 0; i < 125; ++i)
            file.push_back(choices.next<std::uint8_t>());
    } else if (end == 2) {
        file.resize(file.size() + 100, 'e');
    }
    return count > 2 || (count == 2 && end < 2);
}

/// All boxes; those that hold others only if there is nothing in them.
std::vector<MovieLeaf> leavesOf(std::span<std::uint8_t const> file)
{
    constexpr std::string_view entered[] { "moov", "trak", "mdia", "minf", "stbl", "udta", "meta",
        "ilst" };
    return MovieLeaves(file, entered).all();
}

/// What is new is the first tag, and who its list is by.
void requireOnlyThePlaceIsNew(std::span<std::uint8_t const> file, std::span<std::uint8_t const> now)
{
    auto const before = leavesOf(file), after = leavesOf(now);
    std::vector<MovieLeaf> lost, found;
    std::ranges::set_difference(before, after, std::back_inserter(lost));
    std::ranges::set_difference(after, before, std::back_inserter(found));
    KXMD_REQUIRE(lost.empty());
    KXMD_REQUIRE(!found.empty() && found.size() <= 2);
    for (auto const& leaf : found)
        KXMD_REQUIRE(
            leaf.path == "/moov/udta/meta/ilst/pgap" || leaf.path == "/moov/udta/meta/hdlr");
}

/// A cover can be added to the file with the place.
void requirePlace(KXMutableData::Ref const& data)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader);
    KXMD_REQUIRE(meta && meta->canInsertAlbumCover());
    KXData const picture(Bytes(300, 'p'));
    std::uint64_t const size = meta->albumCoverSizeForEncodedImage(picture);
    std::uint64_t const length = data->length(), covers = meta->albumCoverSizeForEmbeddedTags();
    if (meta->metaType() == KXMDMetaTypeMP4
        && KXMP4EditSafety(*reader).reasonAgainstAddingAlbumCoverOfSize(size))
        return;
    KXMD_REQUIRE(meta->addEncodedAlbumCoverToData(picture, data));
    KXMD_REQUIRE(data->length() == length - covers + size);
}

/// What must hold whatever the file is; whether a place can be made.
bool checkPlace(Bytes const& file)
{
    auto const source = immutableReader(file.data(), file.size());
    bool const canMake = KXMDCoverPlace::canMakeInData(*source);
    KXMD_REQUIRE(source->offset() == 0);
    auto const reason = KXMDCoverPlace::reasonAgainstMakingInData(*source);
    KXMD_REQUIRE(canMake || !reason);
    auto const kind = KXMP4MovieKind::kindOfData(*source);
    KXMD_REQUIRE(!canMake || !kind || kind->isMusic);

    auto const data = std::make_shared<KXMutableData>(file);
    KXMD_REQUIRE(KXMDCoverPlace::makeInData(data) == canMake);
    auto const overSource = std::make_shared<KXMutableData>(source);
    KXMD_REQUIRE(KXMDCoverPlace::makeInData(overSource) == canMake);
    auto const edited = data->bytes();
    KXMD_REQUIRE(std::ranges::equal(edited, overSource->bytes()));
    if (!canMake) {
        KXMD_REQUIRE(std::ranges::equal(edited, file));
        return false;
    }
    KXMD_REQUIRE(edited.size() > file.size());
    KXMD_REQUIRE(!KXMDCoverPlace::makeInData(overSource));
    if (!kind) // A tag before music.
        KXMD_REQUIRE(std::equal(file.rbegin(), file.rend(), edited.rbegin()));
    MovieReferences const before(file);
    if (kind && !reason && before.isClear()) {
        requireSameMedia(before, file, *data);
        requireOnlyThePlaceIsNew(file, edited);
    }
    requirePlace(data);
    return true;
}

/// A movie as the fuzzer chooses, perhaps with a few bytes changed.
Bytes movieOf(Choices choices, bool isKnown, unsigned damages)
{
    std::array<std::pair<std::uint16_t, std::uint8_t>, 3> changes;
    for (auto& [position, value] : changes) {
        position = choices.next<std::uint16_t>();
        value = choices.next<std::uint8_t>();
    }
    Bytes file = isKnown ? RecordingMaker(choices, RecordingMaker::Sizes::small).file()
                         : MovieMaker(choices).movie();
    for (unsigned i = 0; i < std::min<std::size_t>(damages, changes.size()); ++i)
        file[changes[i].first % file.size()] = changes[i].second;
    return file;
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    Choices choices(bytes, length);
    auto const how = choices.next<std::uint8_t>();
    switch (how % 4) {
    case 0: {
        Bytes file;
        bool const isEnough = appendFrames(file, choices);
        KXMD_REQUIRE(checkPlace(file) == isEnough);
        break;
    }
    case 1: {
        auto const rest = choices.rest();
        static_cast<void>(checkPlace(Bytes(rest.begin(), rest.end())));
        break;
    }
    default:
        static_cast<void>(checkPlace(movieOf(choices, how % 2, how / 64)));
    }
    return 0;
}
