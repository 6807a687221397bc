#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include "kxmd/mp4/atoms/KXMP4AtomSampleTable.h"
#include "support/AtomTrees.h"
#include "support/Builders.h"
#include "support/SmallStack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace build;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

Bytes const title = tagAtom("\xA9nam", "Title");

KXMP4Atom::Ref treeOfData(KXMutableData const& data)
{
    return treeOf(Bytes(data.bytes().begin(), data.bytes().end()));
}

std::uint32_t numberAt(KXMutableData const& data, std::uint64_t position)
{
    std::uint32_t value = 0;
    EXPECT_TRUE(data.readUInt32ToAt(value, position));
    return value;
}

/// The entries of the last chunk offset table.
std::vector<std::uint32_t> chunkOffsets(KXMutableData const& data)
{
    auto const table = lastAtom(treeOfData(data), "moov/trak/mdia/minf/stbl/stco");
    std::vector<std::uint32_t> offsets;
    for (std::uint32_t i = 0; i < numberAt(data, table->offset() + 12); ++i)
        offsets.push_back(numberAt(data, table->offset() + 16 + 4 * i));
    return offsets;
}

/// Offset and size of every atom, the root left out.
std::vector<std::pair<std::uint64_t, std::uint64_t>> placesIn(KXMP4Atom& root)
{
    std::vector<std::pair<std::uint64_t, std::uint64_t>> places;
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        if (depth)
            places.emplace_back(atom.offset(), atom.size());
        return true;
    });
    return places;
}

/// A movie whose track has these chunk offsets, with 100 bytes of user data before them.
Bytes movieWithUserDataFirst(std::vector<std::uint32_t> const& offsets)
{
    return join(ftyp(),
        atom("moov", atom("udta", zeros(92)), track("soun", stsd(soundEntry("mp4a")), offsets)),
        atom("mdat", zeros(100)));
}

}

TEST(KXMP4AtomEditing, AnAtomThatWasRemovedIsNoLongerEditedUnlessItHasAParentAgain)
{
    Bytes const file = movieWithUserDataFirst({ 5000 });
    auto const root = treeOf(file);
    KXMutableData data(file);
    auto const userData = lastAtom(root, "moov/udta");
    EXPECT_TRUE(userData->removeSelfFromMutableData(data));
    auto const length = data.length();
    EXPECT_FALSE(userData->removeSelfFromMutableData(data));
    EXPECT_FALSE(userData->insertBeforeSelfInMutableData(data, zeros(8)));
    EXPECT_EQ(data.length(), length);
    userData->setParent(lastAtom(root, "moov").get());
    EXPECT_TRUE(userData->insertBeforeSelfInMutableData(data, zeros(8)));
    EXPECT_EQ(data.length(), length + 8);
}

TEST(KXMP4AtomEditing, RemovingUserDataInFrontOfTheMediaMovesAllThatFollows)
{
    Bytes const file = movieWithUserDataFirst({ 5000, 6000 });
    auto const root = treeOf(file);
    KXMutableData data(file);
    auto const moov = lastAtom(root, "moov"), track = lastAtom(root, "moov/trak");
    auto const moovSize = moov->size(), rootSize = root->size(), trackOffset = track->offset();
    auto const userData = lastAtom(root, "moov/udta");
    ASSERT_EQ(userData->size(), 100u);

    EXPECT_TRUE(userData->removeSelfFromMutableData(data));
    EXPECT_EQ(data.length(), file.size() - 100);
    EXPECT_EQ(numberAt(data, moov->offset()), moovSize - 100);
    EXPECT_EQ(root->size(), rootSize - 100);
    EXPECT_EQ(numberAt(data, 0), ftyp().size()) << "Nothing is written for the root.";
    EXPECT_EQ(track->offset(), trackOffset - 100);
    EXPECT_THAT(chunkOffsets(data), ElementsAre(4900, 5900));
    EXPECT_EQ(userData->parent(), nullptr);
    EXPECT_EQ(lastAtom(root, "moov/udta"), nullptr);
    EXPECT_EQ(placesIn(*root), placesIn(*treeOfData(data)));
}

TEST(KXMP4AtomEditing, InsertingInATagListMovesAllThatFollows)
{
    Bytes const tags = join(tagAtom("aART", "Band"), title);
    auto const file = join(ftyp(),
        atom("moov", userDataWithTags(tags), track("soun", stsd(soundEntry("mp4a")), { 5000 })),
        atom("mdat", zeros(100)));
    auto const root = treeOf(file);
    KXMutableData data(file);
    constexpr std::string_view around[] { "moov", "moov/udta", "moov/udta/meta",
        "moov/udta/meta/ilst" };
    std::vector<std::uint64_t> sizes;
    for (auto const path : around)
        sizes.push_back(lastAtom(root, path)->size());
    auto const last = lastAtom(root, "moov/udta/meta/ilst")->children().back();
    auto const position = last->offset();
    auto const media = lastAtom(root, "mdat")->offset();

    EXPECT_TRUE(last->insertBeforeSelfInMutableData(data, atom("covr", zeros(1992))));
    for (std::size_t i = 0; i < std::size(around); ++i)
        EXPECT_EQ(numberAt(data, lastAtom(root, around[i])->offset()), sizes[i] + 2000);
    EXPECT_EQ(last->offset(), position + 2000);
    EXPECT_EQ(lastAtom(root, "mdat")->offset(), media + 2000);
    EXPECT_THAT(chunkOffsets(data), ElementsAre(7000));
    auto const after = treeOfData(data);
    EXPECT_EQ(lastAtom(root, "moov/udta/meta/ilst")->children().size(), 2u) << "Not in the tree.";
    auto const tagsAfter = lastAtom(after, "moov/udta/meta/ilst")->children();
    ASSERT_EQ(tagsAfter.size(), 3u);
    EXPECT_EQ(tagsAfter[1]->tag(), "covr");
    EXPECT_EQ(tagsAfter[2]->content(), "Title");
}

TEST(KXMP4AtomEditing, TheFirstEntryInFrontOfTheEditEndsTheCorrection)
{
    struct Case {
        std::vector<std::uint32_t> before, after;
    };
    Case const cases[] {
        { { 50, 5000, 6000 }, { 50, 5000, 6000 } },
        { { 5000, 6000, 50 }, { 4900, 5900, 50 } },
        { { 5000, 50, 6000 }, { 4900, 50, 6000 } },
        { {}, {} },
    };
    for (auto const& [before, after] : cases) {
        // User data of 100 bytes at position 1000.
        Bytes const padding = atom("free", zeros(992 - ftyp().size() - 8));
        Bytes const file = join(ftyp(), padding,
            atom("moov", atom("udta", zeros(92)), track("soun", stsd(soundEntry("mp4a")), before)));
        KXMutableData data(file);
        auto const root = treeOf(file);
        auto const target = lastAtom(root, "moov/udta");
        ASSERT_EQ(target->offset(), 1000u);
        EXPECT_TRUE(target->removeSelfFromMutableData(data));
        EXPECT_EQ(chunkOffsets(data), after);
    }
}

TEST(KXMP4AtomEditing, EntriesAtTheVeryPlaceOfTheEditMove)
{
    auto const position = static_cast<std::uint32_t>(ftyp().size() + 8);
    for (int const difference : { -1, 0, 1 }) {
        auto const entry = static_cast<std::uint32_t>(static_cast<int>(position) + difference);
        Bytes const movie = movieWithUserDataFirst({ entry });
        KXMutableData data(movie);
        auto const root = treeOf(movie);
        EXPECT_TRUE(lastAtom(root, "moov/udta")->insertBeforeSelfInMutableData(data, atom("free")));
        EXPECT_THAT(chunkOffsets(data), ElementsAre(difference < 0 ? entry : entry + 8));
    }
}

TEST(KXMP4AtomEditing, EntriesWrapAt4GiB)
{
    Bytes const file = movieWithUserDataFirst({ 0xFFFFFFFF });
    KXMutableData data(file);
    auto const root = treeOf(file);
    EXPECT_TRUE(lastAtom(root, "moov/udta")->insertBeforeSelfInMutableData(data, atom("free")));
    EXPECT_THAT(chunkOffsets(data), ElementsAre(7));
}

TEST(KXMP4AtomEditing, SixtyFourBitTablesKeepTheirValues)
{
    Bytes const table = atom("co64", u32(0), u32(2), u64(5000), u64(50));
    auto const file = join(ftyp(),
        atom("moov", atom("udta", zeros(92)),
            atom("trak", atom("mdia", atom("minf", atom("stbl", table))))));
    KXMutableData data(file);
    auto const root = treeOf(file);
    EXPECT_TRUE(lastAtom(root, "moov/udta")->removeSelfFromMutableData(data));
    auto const moved = lastAtom(treeOfData(data), "moov/trak/mdia/minf/stbl/co64");
    auto const bytes = data.bytes().subspan(moved->offset(), moved->size());
    EXPECT_THAT(bytes, ElementsAreArray(table));
}

TEST(KXMP4AtomEditing, AnAtomThatRunsPastTheEndIsNotRemoved)
{
    Bytes const file = join(ftyp(), atomClaiming(500, "mdat", zeros(100)));
    KXMutableData data(file);
    auto const root = treeOf(file);
    EXPECT_FALSE(lastAtom(root, "mdat")->removeSelfFromMutableData(data));
    EXPECT_THAT(data.bytes(), ElementsAreArray(file));
    EXPECT_EQ(root->children().size(), 2u);
    EXPECT_EQ(root->size(), file.size());
}

TEST(KXMP4AtomEditing, NothingIsInsertedAtTheVeryEnd)
{
    Bytes const file = join(ftyp(), atom("free"));
    auto const root = treeOf(file);
    auto const last = root->children().back();
    last->setOffset(file.size());
    KXMutableData data(file);
    EXPECT_FALSE(last->insertBeforeSelfInMutableData(data, atom("free")));
    EXPECT_THAT(data.bytes(), ElementsAreArray(file));
    last->setOffset(UINT64_MAX);
    EXPECT_FALSE(last->insertBeforeSelfInMutableData(data, atom("free")));
    EXPECT_FALSE(last->removeSelfFromMutableData(data));
    EXPECT_THAT(data.bytes(), ElementsAreArray(file));
}

TEST(KXMP4AtomEditing, AnEditAtTheStartMovesTheRootAsWell)
{
    Bytes const file = join(ftyp(), atom("free"));
    auto const root = treeOf(file);
    KXMutableData data(file);
    EXPECT_TRUE(root->children().front()->insertBeforeSelfInMutableData(data, atom("free")));
    EXPECT_EQ(root->offset(), 8u);
    EXPECT_THAT(data.bytes(), ElementsAreArray(join(atom("free"), file)));
}

TEST(KXMP4AtomEditing, ARemovedAtomOutlivesItsParent)
{
    Bytes const file = join(atom("moov", atom("udta")), atom("free"));
    KXMutableData data(file);
    auto root = treeOf(file);
    auto atom = lastAtom(root, "moov/udta");
    EXPECT_TRUE(atom->removeSelfFromMutableData(data));
    root.reset();
    EXPECT_EQ(atom->tag(), "udta");
    EXPECT_EQ(atom->parent(), nullptr);
}

TEST(KXMP4AtomEditing, AtomsWithoutTheirTreeRefuseToEdit)
{
    Bytes const file = join(atom("moov", atom("udta")), atom("free"));
    auto root = treeOf(file);
    auto const outliving = lastAtom(root, "moov/udta");
    auto const removed = root->children().back();
    root->removeChild(*removed);
    root.reset();
    for (auto const& lost : { outliving, removed }) {
        KXMutableData data(file);
        EXPECT_FALSE(lost->removeSelfFromMutableData(data));
        EXPECT_FALSE(lost->insertBeforeSelfInMutableData(data, atom("free")));
        EXPECT_THAT(data.bytes(), ElementsAreArray(file));
    }
}

TEST(KXMP4AtomEditing, AnAtomOfItsOwnIsEditedWithoutATree)
{
    Bytes const file = join(atom("free"), atom("skip", zeros(4)));
    auto const alone = KXMP4Atom::atomForParent(nullptr, *reader(file));
    KXMutableData data(file);
    EXPECT_TRUE(alone->removeSelfFromMutableData(data));
    EXPECT_THAT(data.bytes(), ElementsAreArray(atom("skip", zeros(4))));
}

TEST(KXMP4AtomEditing, TablesThatRunPastTheBufferAreReportedAndNothingOutsideIsTouched)
{
    for (std::uint32_t const count : { 3u, 1000u, 0xFFFFFFFFu }) {
        Bytes const table = atom("stco", u32(0), u32(count), u32(5000), u32(6000));
        Bytes const file = join(ftyp(),
            atom("moov", atom("udta", zeros(92)),
                atom("trak", atom("mdia", atom("minf", atom("stbl", table))))));
        auto const root = treeOf(file);
        KXMutableData data(file);
        EXPECT_FALSE(lastAtom(root, "moov/udta")->removeSelfFromMutableData(data));
        EXPECT_EQ(data.length(), file.size() - 100) << "Edited all the same.";
        EXPECT_EQ(numberAt(data, data.length() - 4), 5900u);
        EXPECT_EQ(numberAt(data, data.length() - 8), 4900u);
    }
}

TEST(KXMP4AtomEditing, TablesWithoutACountAreReported)
{
    Bytes const file
        = join(atom("moov", atom("udta", zeros(92))), atomClaiming(400, "stco", u32(0)));
    auto const root = treeOf(file);
    KXMutableData data(file);
    EXPECT_FALSE(lastAtom(root, "moov/udta")->removeSelfFromMutableData(data));
}

TEST(KXMP4AtomEditing, AnEntryInFrontOfTheEditEndsEvenFourBillionEntries)
{
    Bytes const table = atom("stco", u32(0), u32(0xFFFFFFFF), u32(5000), u32(0), u32(6000));
    Bytes const file = join(ftyp(),
        atom("moov", atom("udta", zeros(92)),
            atom("trak", atom("mdia", atom("minf", atom("stbl", table))))));
    auto const root = treeOf(file);
    KXMutableData data(file);
    EXPECT_TRUE(lastAtom(root, "moov/udta")->removeSelfFromMutableData(data));
    EXPECT_EQ(numberAt(data, data.length() - 4), 6000u);
    EXPECT_EQ(numberAt(data, data.length() - 12), 4900u);
}

TEST(KXMP4AtomEditing, ATableRunsOverWhatFollowsItWhenItClaimsMore)
{
    // Deliberate: the count is believed, as long as what follows lies after the edit.
    Bytes const table = atom("stco", u32(0), u32(3), u32(5000));
    Bytes const file
        = join(ftyp(), atom("moov", atom("udta", zeros(92)), table), u32(7000), u32(8000));
    auto const root = treeOf(file);
    KXMutableData data(file);
    EXPECT_TRUE(lastAtom(root, "moov/udta")->removeSelfFromMutableData(data));
    EXPECT_EQ(numberAt(data, data.length() - 8), 6900u);
    EXPECT_EQ(numberAt(data, data.length() - 4), 7900u);
}

TEST(KXMP4AtomEditing, TheCountOfATableIsTakenFromTheBuffer)
{
    Bytes const file = movieWithUserDataFirst({ 5000, 6000, 7000 });
    auto const root = treeOf(file);
    KXMutableData data(file);
    auto const table = lastAtom(root, "moov/trak/mdia/minf/stbl/stco");
    std::uint64_t const count = table->offset() + 12;
    ASSERT_TRUE(data.replaceUInt32AtWith(count, 2));
    EXPECT_TRUE(lastAtom(root, "moov/udta")->removeSelfFromMutableData(data));
    ASSERT_TRUE(data.replaceUInt32AtWith(count - 100, 3));
    EXPECT_THAT(chunkOffsets(data), ElementsAre(4900, 5900, 7000));
}

TEST(KXMP4AtomEditing, EntriesInsideOfARemovedAtomMoveAsIfTheyLayAfterIt)
{
    std::uint32_t const userData = static_cast<std::uint32_t>(ftyp().size()) + 8;
    Bytes const file = movieWithUserDataFirst({ userData + 99, userData + 50, userData + 1 });
    auto const root = treeOf(file);
    KXMutableData data(file);
    ASSERT_EQ(lastAtom(root, "moov/udta")->offset(), userData);
    EXPECT_TRUE(lastAtom(root, "moov/udta")->removeSelfFromMutableData(data));
    EXPECT_THAT(chunkOffsets(data),
        ElementsAre(userData + 99 - 100, userData + 50 - 100, userData + 1 - 100));
}

TEST(KXMP4AtomEditing, TablesOfARemovedAtomAreNotWritten)
{
    // Their places are others' by now.
    Bytes const file = join(ftyp(),
        atom("moov", track("soun", stsd(soundEntry("mp4a")), { 5000 }), atom("free", zeros(300))));
    auto const root = treeOf(file);
    KXMutableData data(file);
    auto const track = lastAtom(root, "moov/trak");
    std::uint64_t const begin = track->offset(), size = track->size();
    EXPECT_TRUE(track->removeSelfFromMutableData(data));
    Bytes expected(file);
    expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(begin),
        expected.begin() + static_cast<std::ptrdiff_t>(begin + size));
    Bytes const movieSize = u32(static_cast<std::uint32_t>(8 + 308));
    std::ranges::copy(movieSize, expected.begin() + static_cast<std::ptrdiff_t>(ftyp().size()));
    EXPECT_THAT(data.bytes(), ElementsAreArray(expected));
}

TEST(KXMP4AtomEditing, AMillionNestedLevelsAreEdited)
{
    constexpr std::uint32_t levels = 1'000'000;
    Bytes file;
    file.reserve(levels * 8 + 16);
    for (std::uint32_t i = 0; i < levels; ++i) {
        Bytes const header = atomClaiming((levels - i) * 8 + 16, "udta");
        file.insert(file.end(), header.begin(), header.end());
    }
    file = join(std::move(file), atom("free"), atom("skip"));
    onSmallStack([&] {
        auto const root = treeOf(file);
        KXMP4Atom::Ref innermost = root;
        for (auto children = root->children(); !children.empty(); children = innermost->children())
            innermost = children.front();
        ASSERT_EQ(innermost->tag(), "free");
        KXMutableData data(file);
        EXPECT_TRUE(innermost->insertBeforeSelfInMutableData(data, atom("wide")));
        EXPECT_EQ(numberAt(data, 0), file.size() + 8);
        EXPECT_EQ(numberAt(data, (levels - 1) * std::uint64_t { 8 }), 8u + 8 + 16);
        auto const again = treeOfData(data);
        innermost = again;
        for (auto children = again->children(); !children.empty(); children = innermost->children())
            innermost = children.front();
        EXPECT_TRUE(innermost->removeSelfFromMutableData(data));
        EXPECT_THAT(data.bytes(), ElementsAreArray(file));
    });
}

TEST(KXMP4AtomEditing, AtomThatIsReadAnewIsEditedAgain)
{
    Bytes const file = movieWithUserDataFirst({ 5000 });
    auto const root = treeOf(file);
    KXMutableData data(file);
    auto const userData = lastAtom(root, "moov/udta");
    EXPECT_TRUE(userData->removeSelfFromMutableData(data));
    userData->parseWithParent(lastAtom(root, "moov").get(), *reader(atom("udta")));
    EXPECT_TRUE(userData->insertBeforeSelfInMutableData(data, zeros(8)));
}

TEST(KXMP4AtomEditing, TableMayTakeTheWholeBufferAndOtherAtomsTakeNothingOfIt)
{
    KXMP4Atom root;
    for (int i = 0; i < 100; ++i)
        root.addChild(std::make_shared<KXMP4Atom>());
    auto const table = std::make_shared<KXMP4AtomSampleTable>();
    table->setNoOfEntries(1000);
    root.addChild(table);
    KXMutableData data(join(u32(20), text("stco"), u32(0), u32(1), u32(5000)));
    EXPECT_TRUE(root.adjustOffsetInMutableData(100, 5, data));
    EXPECT_EQ(numberAt(data, 16), 5100u);
}

TEST(KXMP4AtomEditing, TablesThatLieInEachOtherAreNotAllCorrected)
{
    // Each is in a track too small for it, and claims what follows: up to the end, or past it.
    constexpr std::uint32_t tableCount = 50, trackLength = 24, hole = 16;
    for (std::uint32_t const more : { 1u, 2u }) {
        Bytes file = atom("free", zeros(hole - 8));
        for (std::uint32_t i = 1; i <= tableCount; ++i) {
            std::uint32_t const entries = (tableCount - i) * trackLength / 4 + more;
            file = join(file, u32(trackLength), text("trak"), u32(16 + 4 * entries), text("stco"),
                u32(0), u32(entries));
        }
        file = join(file, u32(5000));
        auto const root = treeOf(file);
        KXMutableData data(file);
        EXPECT_FALSE(root->children().front()->removeSelfFromMutableData(data));
        EXPECT_EQ(numberAt(data, data.length() - 4), 5000 - hole) << more;
    }
}
