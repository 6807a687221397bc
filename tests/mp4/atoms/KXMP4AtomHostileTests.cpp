// Files made to exhaust a parser: by depth, by number, by walking the same bytes again.

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "support/AtomTrees.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/SmallStack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using namespace build;

namespace {

constexpr std::size_t mostAtoms = 1u << 20;

std::size_t atomCount(KXMP4Atom& root)
{
    std::size_t count = 0;
    root.visitDepthFirst([&count](KXMP4Atom&, std::size_t) { return ++count; });
    return count - 1; // Without the root.
}

/// `levels` atoms, each the only child of the one before, all ending at the end.
Bytes nestedAtoms(std::size_t levels, std::string_view type)
{
    Bytes bytes;
    bytes.reserve(levels * 8);
    for (std::size_t level = 0; level < levels; ++level) {
        auto const size = static_cast<std::uint32_t>((levels - level) * 8);
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::uint8_t>(size >> shift));
        bytes.insert(bytes.end(), type.begin(), type.end());
    }
    return bytes;
}

/// Pairs of a container that holds only the header of a second one, which claims everything after
/// it: all that follows is walked as its children, and then again as what follows the first.
Bytes doublingContainers(int count)
{
    constexpr std::uint32_t everything = 200'000'000;
    Bytes file;
    for (int i = 0; i < count; ++i)
        file = join(std::move(file), atomClaiming(16, "moov"), atomClaiming(everything, "moov"));
    return file;
}

}

TEST(KXMP4AtomHostile, MillionNestedAtomsNeedNoStack)
{
    onSmallStack([] {
        constexpr std::size_t levels = 1'000'000;
        auto root = treeOf(nestedAtoms(levels, "moov"));
        std::size_t deepest = 0;
        KXMP4Atom::Ref last;
        root->visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
            deepest = std::max(deepest, depth);
            last = atom.shared_from_this();
            return true;
        });
        EXPECT_EQ(deepest, levels);
        EXPECT_EQ(last->rootAtom(), root.get());
        EXPECT_EQ(last->trackType(), KXMP4TrackTypeNone);
        EXPECT_EQ(last->fullPath().size(), 4 + levels * 5);
        EXPECT_EQ(root->allAtomsWithPath("moov/moov/moov").size(), 1u);
        root.reset(); // Destroyed without recursion too.
        EXPECT_EQ(last->parent(), nullptr);
    });
}

TEST(KXMP4AtomHostile, NestedTracksAndSampleEntriesNeedNoStack)
{
    onSmallStack([] {
        for (char const* const type : { "trak", "stsd", "mp4a", "avc1", "wave", "mdia" }) {
            auto const root = treeOf(atom("moov",
                atom("trak",
                    atom("mdia", hdlr("soun"),
                        atom("minf", atom("stbl", stsd(nestedAtoms(100'000, type))))))));
            EXPECT_GT(atomCount(*root), 6u) << type;
        }
    });
}

TEST(KXMP4AtomHostile, TooManyAtomsEndEveryListWithOneLogLine)
{
    LogCapture const log;
    constexpr std::size_t count = 8 * 1024 * 1024; // 64 MB.
    Bytes file;
    file.reserve(count * 8);
    Bytes const one = atom("free");
    for (std::size_t i = 0; i < count; ++i)
        file.insert(file.end(), one.begin(), one.end());
    auto const root = treeOf(std::move(file));
    EXPECT_EQ(root->children().size(), mostAtoms);
    EXPECT_THAT(log.lines(),
        testing::ElementsAre("Metadata: KXMP4Atom->too many atoms, the rest is left out"));
}

TEST(KXMP4AtomHostile, AsManyAtomsAsTheBudgetAllowsAreNoReasonForALogLine)
{
    LogCapture const log;
    Bytes file;
    file.reserve(mostAtoms * 8);
    Bytes const one = atom("free");
    for (std::size_t i = 0; i < mostAtoms; ++i)
        file.insert(file.end(), one.begin(), one.end());
    EXPECT_EQ(treeOf(std::move(file))->children().size(), mostAtoms);
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST(KXMP4AtomHostile, BytesThatAreWalkedAgainAndAgainEndWithTheBudget)
{
    LogCapture const log;
    EXPECT_EQ(atomCount(*treeOf(doublingContainers(12))), (1u << 13) - 2);
    EXPECT_THAT(log.lines(), testing::IsEmpty());
    EXPECT_EQ(atomCount(*treeOf(doublingContainers(47))), mostAtoms); // 752 bytes.
    EXPECT_THAT(log.lines(), testing::SizeIs(1));
}

TEST(KXMP4AtomHostile, CoverThatIsWalkedAgainAndAgainIsMeasuredWithinTheBudget)
{
    // A picture of endless segments.
    std::vector<Bytes> segments { bytes({ 0xFF, 0xD8 }) };
    segments.resize(100'000, bytes({ 0xFF, 0xE0, 0, 2 }));
    Bytes const picture = concatenated(segments);
    auto const data = reader(join(doublingContainers(16), covr(13, picture)));
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    EXPECT_GT(atomCount(*root), 1u << 16);
    EXPECT_EQ(data->budget().stepsLeft(), 0u);
}

TEST(KXMP4AtomHostile, FillersThatAreWalkedAgainAndAgainAreReadWithinTheBudget)
{
    auto const data = reader(
        join(doublingContainers(16), atom("esds", u32(0), u8(3), filled(1'000'000, 0x80))));
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    EXPECT_GT(atomCount(*root), 1u << 16);
    EXPECT_EQ(data->budget().stepsLeft(), 0u);
}

TEST(KXMP4AtomHostile, BoxesOfACoverThatAreWalkedAgainAndAgainAreReadWithinTheBudget)
{
    // Each walk takes as many steps as there are boxes before the metadata, and finds none.
    std::vector<Bytes> boxes { atom("ftyp", text("heic"), u32(0), text("mif1")) };
    boxes.resize(100'000, atom("free"));
    auto const data = reader(join(doublingContainers(16), covr(13, concatenated(boxes))));
    EXPECT_GT(atomCount(*KXMP4Atom::atomWithAbstractData(*data)), 1u << 16);
    EXPECT_EQ(data->budget().stepsLeft(), 0u);
}

TEST(KXMP4AtomHostile, TextOfACoverCostsNothing)
{
    auto const data = reader(
        join(doublingContainers(9), covr(13, join(text("<svg>"), filled(1'000'000, '<')))));
    auto const before = data->budget().stepsLeft();
    EXPECT_GT(atomCount(*KXMP4Atom::atomWithAbstractData(*data)), 1000u);
    EXPECT_EQ(data->budget().stepsLeft(), before);
}

TEST(KXMP4AtomHostile, EveryTruncationOfASmallFileParses)
{
    Bytes const file = join(ftyp(),
        atom("moov",
            track("soun", stsd(soundEntry("mp4a", esds(0x40, 1, 2, bytes({ 0x12, 0x10 }))))),
            track("vide", stsd(videoEntry("avc1", 64, 48, avcC(77, 30)))),
            userDataWithTags(join(tagAtom("\xA9nam", "Blue"), covr(13, jpeg(300, 300, 400))))),
        atom("mdat", zeros(16)));
    for (std::size_t length = 0; length <= file.size(); ++length) {
        Bytes const truncated(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader(truncated));
        ASSERT_TRUE(meta);
        EXPECT_EQ(meta->filesize(), length);
        (void)meta->videoCodecsInfo();
        (void)meta->audioCodecsInfo();
    }
}

TEST(KXMP4AtomHostile, RandomBytesInPlaceOfEachByteParse)
{
    Bytes const file = join(ftyp(),
        atom("moov",
            track("soun", stsd(soundEntry("mp4a", esds(0x40, 1, 2, bytes({ 0x12, 0x10 }))))),
            userDataWithTags(join(tagAtom("\xA9nam", "Blue"), covr(13, jpeg(300, 300))))));
    std::mt19937 random(1);
    for (std::size_t position = 0; position < file.size(); ++position) {
        Bytes changed = file;
        changed[position] = static_cast<std::uint8_t>(random());
        auto const root = treeOf(changed);
        EXPECT_FALSE(root->recursiveDescriptionWithInset(0).empty());
    }
}
