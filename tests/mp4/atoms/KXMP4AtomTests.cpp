#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include "kxmd/mp4/atoms/KXMP4AtomHdlr.h"
#include "support/AtomTrees.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> tagsOf(KXMP4Atom::List const& atoms)
{
    std::vector<std::string> tags;
    for (auto const& atom : atoms)
        tags.push_back(atom->tag());
    return tags;
}

}

TEST(KXMP4Atom, EightZeroBytesGiveARootWithoutChildren)
{
    auto const root = treeOf(zeros(8));
    EXPECT_THAT(root->children(), IsEmpty());
    EXPECT_EQ(root->tag(), "ROOT");
    EXPECT_EQ(root->size(), 8u);
    EXPECT_EQ(root->offset(), 0u);
    EXPECT_EQ(root->parent(), nullptr);
    EXPECT_TRUE(root->rootIsParsed());
}

TEST(KXMP4Atom, EmptyDataGiveARootWithoutChildren)
{
    auto const root = treeOf({});
    EXPECT_THAT(root->children(), IsEmpty());
    EXPECT_EQ(root->size(), 0u);
}

TEST(KXMP4Atom, SizeOfOneIsKeptAndTheNextAtomIsReadFromOneByteLater)
{
    // From its second byte on, the first atom reads as size 0x161 and type "bcd" and a space.
    auto const root = treeOf(join(bytes({ 0, 0, 0, 1 }), text("abcd"), text(" more bytes")));
    auto const children = root->children();
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(children[0]->size(), 1u);
    EXPECT_EQ(children[0]->tag(), "abcd");
    EXPECT_EQ(children[1]->offset(), 1u);
    EXPECT_EQ(children[1]->size(), 0x161u);
    EXPECT_EQ(children[1]->tag(), "bcd ");
}

TEST(KXMP4Atom, SizesFromTwoToSevenAreKeptAsTheyAre)
{
    for (std::uint32_t size = 2; size <= 7; ++size) {
        auto const root = treeOf(join(atomClaiming(size, "abcd"), zeros(8)));
        ASSERT_GE(root->children().size(), 2u);
        EXPECT_EQ(root->children()[0]->size(), size);
        EXPECT_EQ(root->children()[1]->offset(), size);
    }
}

TEST(KXMP4Atom, SizeOfZeroEndsTheListItStandsInAndNoOther)
{
    auto const root = treeOf(
        join(atom("moov", atom("abcd"), atomClaiming(0, "efgh"), atom("ijkl")), atom("mdat")));
    EXPECT_THAT(tagsOf(root->children()), ElementsAre("moov", "mdat"));
    EXPECT_THAT(tagsOf(root->children()[0]->children()), ElementsAre("abcd"));
}

TEST(KXMP4Atom, TypeThatBeginsWithAZeroByteIsTaggedNULL)
{
    auto const root = treeOf(join(u32(8), bytes({ 0, 'a', 'b', 'c' })));
    EXPECT_THAT(tagsOf(root->children()), ElementsAre("NULL"));
}

TEST(KXMP4Atom, TypeWithAZeroByteInsideKeepsIt)
{
    auto const root = treeOf(join(u32(8), bytes({ 'm', 0, 0, 'v' })));
    EXPECT_EQ(root->children().front()->tag(), std::string("m\0\0v", 4));
    EXPECT_FALSE(root->children().front()->isContainerAtom());
}

TEST(KXMP4Atom, Latin1TypeIsUTF8Text)
{
    auto const root = treeOf(atom("\xA9nam"));
    EXPECT_EQ(root->children().front()->tag(), "\xC2\xA9nam");
}

TEST(KXMP4Atom, ChildThatRunsPastItsParentMovesThePositionBack)
{
    // "abcd" claims the bytes of "free" as well; they are read again after "moov".
    auto const root
        = treeOf(join(atomClaiming(16, "moov", atomClaiming(100, "abcd")), atom("free", zeros(4))));
    EXPECT_THAT(tagsOf(root->children()), ElementsAre("moov", "free"));
    EXPECT_EQ(root->children()[0]->children().front()->size(), 100u);
    EXPECT_EQ(root->children()[1]->offset(), 16u);
}

TEST(KXMP4Atom, AtomThatRunsPastTheDataIsKeptAndIsTheLast)
{
    auto const root = treeOf(join(atom("ftyp"), atomClaiming(0xFFFFFFFF, "mdat")));
    ASSERT_EQ(root->children().size(), 2u);
    EXPECT_EQ(root->children()[1]->size(), 0xFFFFFFFFu);
}

TEST(KXMP4Atom, EveryContainerTypeHasItsAtomsAsChildren)
{
    for (char const* const type : { "moov", "udta", "ilst", "trak", "tapt", "edts", "mdia", "minf",
             "dinf", "stbl", "wave" }) {
        SCOPED_TRACE(type);
        auto const root = treeOf(atom(type, atom("abcd")));
        EXPECT_THAT(tagsOf(root->children().front()->children()), ElementsAre("abcd"));
    }
}

TEST(KXMP4Atom, ContainerTypesAreFoundAcrossTheCommasOfTheirList)
{
    auto const root = treeOf(join(atom("ov,u", atom("abcd")), atom("ov.u", atom("abcd"))));
    EXPECT_THAT(tagsOf(root->children()[0]->children()), ElementsAre("abcd"));
    EXPECT_THAT(root->children()[1]->children(), IsEmpty());
}

TEST(KXMP4Atom, TagTypesAreFoundAcrossTheCommasOfTheirList)
{
    auto const root = treeOf(atom("lb,a", dataAtom(1, text("found"))));
    EXPECT_EQ(root->children().front()->content(), "found");
}

TEST(KXMP4Atom, PathFromTheRootFindsEveryTrackInFileOrder)
{
    auto const root = treeOf(atom("moov", atom("trak", zeros(4)), atom("free"), atom("trak")));
    auto const tracks = root->allAtomsWithPath("moov/trak");
    ASSERT_EQ(tracks.size(), 2u);
    EXPECT_LT(tracks[0]->offset(), tracks[1]->offset());
}

TEST(KXMP4Atom, PathFromAnAtomBeginsWithItsOwnTag)
{
    auto const root = treeOf(atom("moov", atom("trak", atom("mdia", hdlr("vide")))));
    auto const movie = root->children().front();
    EXPECT_THAT(movie->allAtomsWithPath("trak"), IsEmpty());
    EXPECT_THAT(tagsOf(movie->allAtomsWithPath("moov/trak")), ElementsAre("trak"));
    EXPECT_THAT(tagsOf(movie->allAtomsWithPath("moov")), ElementsAre("moov"));
    EXPECT_THAT(
        tagsOf(movie->children().front()->allAtomsWithPath("trak/mdia/hdlr")), ElementsAre("hdlr"));
}

TEST(KXMP4Atom, PathsThatNameNothingFindNothing)
{
    auto const root = treeOf(atom("moov", atom("trak")));
    for (char const* const path :
        { "", "/", "ROOT", "ROOT/moov", "moov/", "/moov", "moov//trak", "moo" })
        EXPECT_THAT(root->allAtomsWithPath(path), IsEmpty()) << path;
}

TEST(KXMP4Atom, PathFindsAtomsOfSeveralParentsInFileOrder)
{
    auto const root = treeOf(
        join(atom("moov", atom("udta", atom("aaaa")), atom("udta", atom("aaaa", zeros(1)))),
            atom("moov", atom("udta", atom("aaaa", zeros(2))))));
    auto const found = root->allAtomsWithPath("moov/udta/aaaa");
    ASSERT_EQ(found.size(), 3u);
    for (std::size_t i = 0; i < found.size(); ++i)
        EXPECT_EQ(found[i]->size(), 8 + i);
}

TEST(KXMP4Atom, FullPathJoinsTheTagsFromTheRootByPoints)
{
    auto const root = treeOf(atom("moov", atom("trak", zeros(4))));
    auto const track = root->allAtomsWithPath("moov/trak").front();
    EXPECT_EQ(track->fullPath(), "ROOT.moov.trak");
    EXPECT_EQ(track->fullPathWithSize(), "ROOT.moov.trak Size:12");
    EXPECT_EQ(root->fullPath(), "ROOT");
}

TEST(KXMP4Atom, AllPathsHasALineForEachAtom)
{
    auto const root = treeOf(join(atom("moov", atom("trak"), atom("free")), atom("mdat")));
    EXPECT_EQ(root->allPaths(),
        "ROOT Size:32\nROOT.moov Size:24\nROOT.moov.trak Size:8\nROOT.moov.free Size:8\n"
        "ROOT.mdat Size:8\n");
    EXPECT_EQ(root->children()[0]->allPaths(),
        "ROOT.moov Size:24\nROOT.moov.trak Size:8\nROOT.moov.free Size:8\n");
}

TEST(KXMP4Atom, DescriptionNamesTagSizeAndContent)
{
    auto const root = treeOf(join(atom("free"), tagAtom("\xA9nam", "Blue")));
    EXPECT_EQ(root->children()[0]->description(), "MP4 Atom:free - 8");
    EXPECT_EQ(root->children()[1]->description(), "MP4 Atom:©nam - 28 - Blue");
}

TEST(KXMP4Atom, RecursiveDescriptionIsIndentedByTabs)
{
    auto const root = treeOf(join(atom("moov", atom("udta", atom("abcd"))), atom("mdat")));
    EXPECT_EQ(root->recursiveDescriptionWithInset(1),
        "\tMP4 Atom:ROOT - 32\n\t\tMP4 Atom:moov - 24\n\t\t\tMP4 Atom:udta - 16\n"
        "\t\t\t\tMP4 Atom:abcd - 8\n\t\tMP4 Atom:mdat - 8\n");
}

TEST(KXMP4Atom, VisitEndsWhenTheVisitorSaysSo)
{
    auto const root = treeOf(join(atom("moov", atom("trak")), atom("mdat")));
    std::vector<std::string> expected;
    for (char const* const last : { "0ROOT", "1moov", "2trak", "1mdat" }) {
        expected.push_back(last);
        std::vector<std::string> seen;
        root->visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
            seen.push_back(std::to_string(depth) + atom.tag());
            return seen.back() != last;
        });
        EXPECT_EQ(seen, expected);
    }
}

TEST(KXMP4Atom, TagTextIsReadAsUTF8WhateverTheTypeIndicator)
{
    for (std::uint32_t const indicator : { 0u, 1u, 13u, 0xFFFFFFFFu }) {
        auto const root = treeOf(atom("\xA9nam", dataAtom(indicator, text("Größe"))));
        EXPECT_EQ(root->children().front()->content(), "Größe");
    }
}

TEST(KXMP4Atom, TagTextIsAtMost254BytesLong)
{
    auto const longest = treeOf(tagAtom("\xA9nam", std::string(254, 'x')));
    EXPECT_EQ(longest->children().front()->content(), std::string(254, 'x'));
    auto const tooLong = treeOf(tagAtom("\xA9nam", std::string(255, 'x')));
    EXPECT_EQ(tooLong->children().front()->content(), std::nullopt);
}

TEST(KXMP4Atom, TagWithoutUsableTextHasNoContent)
{
    Bytes const cases[] {
        atom("\xA9nam"),
        atom("\xA9nam", atom("name", zeros(8), text("text"))), // The first child is no "data".
        atom("\xA9nam", dataAtom(1, {})), // An empty text.
        atom("\xA9nam", atomClaiming(15, "data", zeros(8), text("text"))), // Wraps below 16.
        atom("\xA9nam", dataAtom(1, bytes({ 0xC3, 0x28 }))), // Not UTF-8.
        atom("\xA9nam", atomClaiming(100, "data", zeros(8), text("short"))), // Past the data.
        atom("\xA9gen", dataAtom(1, text("text"))), // Not one of the tags.
    };
    for (auto const& bytes : cases)
        EXPECT_EQ(treeOf(bytes)->children().front()->content(), std::nullopt);
}

TEST(KXMP4Atom, DataAtomOfATagIsNotPartOfTheTree)
{
    EXPECT_THAT(treeOf(tagAtom("\xA9nam", "Blue"))->children().front()->children(), IsEmpty());
}

TEST(KXMP4Atom, SampleDescriptionsOfSoundTracksAreReadInTheSecondPass)
{
    auto const root = treeOf(atom("moov", track("soun", stsd(soundEntry("mp4a")))));
    auto const tables = root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd");
    ASSERT_EQ(tables.size(), 1u);
    EXPECT_THAT(tagsOf(tables[0]->children()), ElementsAre("mp4a"));
    EXPECT_EQ(tables[0]->trackType(), KXMP4TrackTypeSound);
}

TEST(KXMP4Atom, SampleDescriptionsOfOtherTracksHaveNoChildren)
{
    auto const root = treeOf(atom("moov", track("text", stsd(soundEntry("mp4a")))));
    auto const tables = root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd");
    ASSERT_EQ(tables.size(), 1u);
    EXPECT_THAT(tables[0]->children(), IsEmpty());
    EXPECT_EQ(tables[0]->trackType(), KXMP4TrackTypeNone);
}

TEST(KXMP4Atom, HandlerAfterTheSampleDescriptionCounts)
{
    auto const root = treeOf(atom("moov",
        atom("trak",
            atom("mdia", atom("minf", atom("stbl", stsd(soundEntry("mp4a")))), hdlr("soun")))));
    EXPECT_THAT(
        tagsOf(root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd/mp4a")), ElementsAre("mp4a"));
}

TEST(KXMP4Atom, LastHandlerOfATrackDecides)
{
    auto const root = treeOf(
        atom("moov", atom("trak", atom("mdia", hdlr("soun"), hdlr("text")), atom("free"))));
    EXPECT_EQ(root->allAtomsWithPath("moov/trak/free").front()->trackType(), KXMP4TrackTypeNone);
}

TEST(KXMP4Atom, SampleDescriptionElsewhereHasNoChildren)
{
    auto const root = treeOf(join(stsd(soundEntry("mp4a")),
        atom("moov", atom("trak", atom("mdia", hdlr("soun"), stsd(soundEntry("mp4a")))))));
    EXPECT_THAT(root->children().front()->children(), IsEmpty());
    EXPECT_THAT(root->allAtomsWithPath("moov/trak/mdia/stsd").front()->children(), IsEmpty());
}

TEST(KXMP4Atom, SampleDescriptionInATrackWithinASampleEntryGoesByTheInnerTrack)
{
    Bytes const inner = atom("trak", atom("mdia", hdlr("text")),
        atom("mdia", atom("minf", atom("stbl", stsd(soundEntry("alac"))))));
    auto const root = treeOf(atom("moov", track("soun", stsd(soundEntry("mp4a", inner)))));
    auto const table
        = root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd/mp4a/trak/mdia/minf/stbl/stsd");
    ASSERT_EQ(table.size(), 1u);
    EXPECT_THAT(table[0]->children(), IsEmpty());
}

TEST(KXMP4Atom, SecondParseOfASampleDescriptionReplacesItsChildren)
{
    Bytes const file = atom("moov", track("soun", stsd(soundEntry("mp4a"))));
    auto const data = reader(file);
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    auto const table = root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd").front();
    data->setOffset(table->offset());
    table->parseWithParent(table->parent(), *data);
    EXPECT_THAT(tagsOf(table->children()), ElementsAre("mp4a"));
    EXPECT_EQ(data->offset(), table->offset() + table->size());
}

TEST(KXMP4Atom, MediaAtomThatIsReadAnewFindsItsSampleEntriesAgain)
{
    auto const data = reader(atom("moov", track("soun", stsd(soundEntry("mp4a")))));
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    for (char const* const path : { "moov/trak/mdia", "moov/trak/mdia/minf" }) {
        auto const atom = root->allAtomsWithPath(path).front();
        data->setOffset(atom->offset());
        atom->parseWithParent(atom->parent(), *data);
        EXPECT_EQ(root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd/mp4a").size(), 1u) << path;
    }
}

TEST(KXMP4Atom, SecondParseOfARootReplacesItsAtoms)
{
    auto const root = treeOf(join(atom("moov"), atom("mdat")));
    root->parseRootWithAbstractData(*reader(atom("free")));
    EXPECT_THAT(tagsOf(root->children()), ElementsAre("free"));
    EXPECT_EQ(root->size(), 8u);
}

TEST(KXMP4Atom, RootThatWasUsedIsReadFromTheStart)
{
    auto const root = treeOf(join(atom("moov"), atom("mdat")));
    KXMP4Atom other;
    root->setOffset(7);
    root->setParent(&other);
    root->setTag("moov");
    auto const data = reader(join(atom("free"), atom("skip")));
    data->setOffset(8);
    root->parseRootWithAbstractData(*data);
    EXPECT_THAT(tagsOf(root->children()), ElementsAre("free", "skip"));
    EXPECT_EQ(root->offset(), 0u);
    EXPECT_EQ(root->parent(), nullptr);
    EXPECT_EQ(root->tag(), "ROOT");
}

TEST(KXMP4Atom, EveryParseOfARootHasItsOwnBudget)
{
    auto const data = reader(atom("moov", atom("trak")));
    while (data->budget().takeNode("")) { }
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    EXPECT_EQ(root->allAtomsWithPath("moov/trak").size(), 1u);
    while (data->budget().takeNode("")) { }
    root->parseRootWithAbstractData(*data);
    EXPECT_EQ(root->allAtomsWithPath("moov/trak").size(), 1u);
}

TEST(KXMP4Atom, FirstPassOfARootThatWasUsedFindsSampleEntriesEverywhereInTracks)
{
    // Not at the path of the second pass.
    Bytes const file
        = atom("moov", atom("trak", atom("mdia", hdlr("soun"), stsd(soundEntry("mp4a")))));
    auto const root = treeOf(file);
    EXPECT_THAT(root->allAtomsWithPath("moov/trak/mdia/stsd/mp4a"), IsEmpty());
    root->parseRootWithAbstractData(*reader(file));
    EXPECT_THAT(tagsOf(root->allAtomsWithPath("moov/trak/mdia/stsd")), ElementsAre("stsd"));
    EXPECT_THAT(tagsOf(root->allAtomsWithPath("moov/trak/mdia/stsd/mp4a")), IsEmpty())
        << "its handler is not yet a child of the track";
    Bytes const later = atom(
        "moov", atom("trak", atom("mdia", hdlr("soun")), atom("mdia", stsd(soundEntry("mp4a")))));
    root->parseRootWithAbstractData(*reader(later));
    EXPECT_EQ(root->allAtomsWithPath("moov/trak/mdia/stsd/mp4a").size(), 1u);
    EXPECT_THAT(treeOf(later)->allAtomsWithPath("moov/trak/mdia/stsd/mp4a"), IsEmpty());
}

TEST(KXMP4Atom, SecondParseOfARootReadsItsSampleEntriesOnce)
{
    Bytes const table = atom("minf", atom("stbl", stsd(soundEntry("mp4a"))));
    Bytes const file = atom("moov", atom("trak", atom("mdia", hdlr("soun")), atom("mdia", table)));
    auto const root = treeOf(file);
    for (int parses = 1; parses <= 2; ++parses) {
        EXPECT_EQ(root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd/mp4a").size(), 1u);
        root->parseRootWithAbstractData(*reader(file));
    }
}

TEST(KXMP4Atom, SecondParseOfARootKnowsWhereATrackEnds)
{
    Bytes const file = atom("moov", atom("trak", atom("mdia", hdlr("soun")), atom("mdia")),
        atom("udta", stsd(soundEntry("mp4a"))), soundEntry("mp4a", atom("esds")));
    auto const root = treeOf(file);
    root->parseRootWithAbstractData(*reader(file));
    EXPECT_THAT(root->allAtomsWithPath("moov/udta/stsd").front()->children(), IsEmpty());
    EXPECT_EQ(root->allAtomsWithPath("moov/mp4a/esds").size(), 1u) << "An entry needs no track.";
}

TEST(KXMP4Atom, MediaAtomThatIsReadAnewGoesByTheHandlerSoFar)
{
    Bytes const table = atom("minf", atom("stbl", stsd(soundEntry("mp4a"))));
    auto const data = reader(atom("moov", atom("trak", atom("mdia", table, hdlr("soun"), table))));
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    auto const media = root->allAtomsWithPath("moov/trak/mdia").front();
    data->setOffset(media->offset());
    media->parseWithParent(media->parent(), *data);
    auto const tables = root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd");
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_THAT(tables[0]->children(), IsEmpty());
    EXPECT_EQ(tables[1]->children().size(), 1u);
}

TEST(KXMP4Atom, AtomThatIsNoContainerIsReadAnewWithoutChildren)
{
    auto const data = reader(join(atom("free", atom("free")), zeros(100)));
    KXMP4Atom atom;
    atom.parseWithParent(nullptr, *data);
    EXPECT_EQ(atom.size(), 16u);
    EXPECT_THAT(atom.children(), IsEmpty());
    EXPECT_EQ(data->offset(), 16u);
}

TEST(KXMP4Atom, AtomForAParentInAParsedTreeHasSampleEntries)
{
    Bytes const track
        = atom("trak", atom("mdia", hdlr("soun")), atom("mdia", stsd(soundEntry("mp4a"))));
    auto const entriesUnder = [&](KXMP4Atom* parent) {
        auto const atom = KXMP4Atom::atomForParent(parent, *reader(track));
        return atom->allAtomsWithPath("trak/mdia/stsd/mp4a").size();
    };
    auto const root = treeOf(atom("moov"));
    EXPECT_EQ(entriesUnder(root->children().front().get()), 1u);
    KXMP4Atom unparsed;
    EXPECT_EQ(entriesUnder(&unparsed), 0u);
    EXPECT_EQ(entriesUnder(nullptr), 0u);
}

TEST(KXMP4Atom, LastHandlerSoFarOfATrackThatIsBeingReadDecides)
{
    auto const root = treeOf(atom("moov"));
    auto const tablesWithEntries = [&](auto const&... media) {
        auto const atom = KXMP4Atom::atomForParent(
            root->children().front().get(), *reader(build::atom("trak", media...)));
        std::vector<std::size_t> counts;
        for (auto const& table : atom->allAtomsWithPath("trak/mdia/stsd"))
            counts.push_back(table->children().size());
        return counts;
    };
    Bytes const entries = atom("mdia", stsd(soundEntry("mp4a")));
    auto const media = [](auto const&... handlers) { return atom("mdia", handlers...); };
    EXPECT_THAT(tablesWithEntries(media(hdlr("soun"), hdlr("text")), entries), ElementsAre(0));
    EXPECT_THAT(tablesWithEntries(media(hdlr("text"), hdlr("soun")), entries), ElementsAre(1));
    EXPECT_THAT(tablesWithEntries(media(hdlr("soun")), entries, media(hdlr("text")), entries,
                    media(hdlr("vide")), entries),
        ElementsAre(1, 0, 1));
    EXPECT_THAT(tablesWithEntries(atom("tkhd"), media(hdlr("soun")), atom("edts"), entries),
        ElementsAre(1));
}

TEST(KXMP4Atom, AtomFindsItselfWhateverOwnsIt)
{
    KXMP4Atom parent, atom;
    atom.setParent(&parent);
    atom.setTag("trak");
    auto const found = atom.allAtomsWithPath("trak");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found.front().get(), &atom);
    EXPECT_EQ(atom.trackType(), KXMP4TrackTypeNone);
    atom.addChild(std::make_shared<KXMP4Atom>());
    EXPECT_THAT(atom.allAtomsWithPath("trak/mdia"), IsEmpty());
}

TEST(KXMP4Atom, EmptyPathFindsNothing)
{
    auto const root = treeOf(atom("moov", atom("trak")));
    EXPECT_THAT(root->allAtomsWithPath(""), IsEmpty());
    auto const untagged = std::make_shared<KXMP4Atom>();
    untagged->setParent(root.get());
    root->addChild(untagged);
    EXPECT_THAT(root->allAtomsWithPath(""), IsEmpty());
    EXPECT_THAT(untagged->allAtomsWithPath(""), IsEmpty());
    untagged->setTag("");
    EXPECT_THAT(root->allAtomsWithPath(""), IsEmpty());
}

TEST(KXMP4Atom, ChildWithoutAParentLinkTakesThePathAsARootDoes)
{
    auto const root = treeOf(atom("moov", atom("trak")));
    auto const other = treeOf(join(atom("moov", atom("trak"), atom("trak")), atom("free")));
    root->addChild(other);
    root->addChild(KXMP4Atom::atomForParent(root.get(), *reader(atom("moov"))));
    EXPECT_THAT(tagsOf(root->allAtomsWithPath("moov")), ElementsAre("moov", "moov", "moov"));
    EXPECT_EQ(root->allAtomsWithPath("moov")[1], other->children().front());
    EXPECT_EQ(root->allAtomsWithPath("moov/trak").size(), 3u);
    EXPECT_THAT(root->allAtomsWithPath("ROOT"), IsEmpty());

    // One that has the tag itself as well.
    auto const movie = std::make_shared<KXMP4Atom>();
    movie->setTag("moov");
    root->children().front()->addChild(movie);
    EXPECT_THAT(root->allAtomsWithPath("moov/moov"), IsEmpty());
}

TEST(KXMP4Atom, TagsThatAreNoTypeAreFoundByTheirText)
{
    auto const root = treeOf(atom("moov", atom("trak"), atom("free")));
    auto const movie = root->children().front();
    movie->children()[0]->setTag("a longer tag");
    movie->children()[1]->setTag("\xC2\xA9");
    EXPECT_THAT(tagsOf(root->allAtomsWithPath("moov/a longer tag")), ElementsAre("a longer tag"));
    EXPECT_THAT(tagsOf(root->allAtomsWithPath("moov/\xC2\xA9")), ElementsAre("\xC2\xA9"));
    EXPECT_THAT(root->allAtomsWithPath("moov/trak"), IsEmpty());
    movie->children()[0]->setTag("trak");
    EXPECT_THAT(tagsOf(root->allAtomsWithPath("moov/trak")), ElementsAre("trak"));
}

TEST(KXMP4Atom, AtomThatWasNeverGivenATypeDescribesItselfAsNull)
{
    KXMP4Atom atom;
    EXPECT_EQ(atom.tag(), "");
    EXPECT_EQ(atom.description(), "MP4 Atom:(null) - 0");
    EXPECT_EQ(KXMP4AtomHdlr().description(), "MP4 Atom:(null) - 0 : Media Handler Type:(null)");
    atom.setTag("");
    EXPECT_EQ(atom.description(), "MP4 Atom: - 0");
    // The type of the next one cannot be read.
    atom.parseWithParent(nullptr, *reader(u32(100)));
    EXPECT_EQ(atom.description(), "MP4 Atom:(null) - 100");
}

TEST(KXMP4Atom, SizeOfZeroIsReadAndOtherwiseNothingMoves)
{
    auto const positionAfter = [](Bytes const& bytes) {
        auto const data = reader(bytes);
        EXPECT_EQ(KXMP4Atom::atomForParent(nullptr, *data), nullptr);
        return data->offset();
    };
    EXPECT_EQ(positionAfter(join(u32(0), text("moov"))), 4u);
    EXPECT_EQ(positionAfter(u32(0)), 4u);
    EXPECT_EQ(positionAfter(zeros(3)), 0u);
    EXPECT_EQ(positionAfter(join(u32(8), text("moo"))), 0u);
    EXPECT_EQ(positionAfter({}), 0u);
}

TEST(KXMP4Atom, AtomWithoutATypeHasNoContent)
{
    auto const data = reader(join(u32(100), dataAtom(1, text("text"))));
    data->setOffset(4);
    KXMP4Atom atom;
    atom.parseAtomSpecificData(*data);
    EXPECT_EQ(atom.content(), std::nullopt);
    EXPECT_FALSE(atom.isContainerAtom());
}

TEST(KXMP4Atom, TextIsReadOfATagThatIsNoType)
{
    KXMP4Atom atom;
    atom.setTag("nam");
    atom.parseAtomSpecificData(*reader(dataAtom(1, text("text"))));
    EXPECT_EQ(atom.content(), "text");
}

TEST(KXMP4Atom, ContainerRuleGoesByTheTagOfTheMoment)
{
    KXMP4Atom atom;
    atom.setTag("moov");
    EXPECT_TRUE(atom.isContainerAtom());
    atom.setTag("oo"); // Inside of "moov".
    EXPECT_TRUE(atom.isContainerAtom());
    atom.setTag("mdat");
    EXPECT_FALSE(atom.isContainerAtom());
}

TEST(KXMP4Atom, FinishedTreeIsReadByManyThreads)
{
    auto const root = treeOf(atom("moov", track("soun", stsd(soundEntry("mp4a"))),
        userDataWithTags(tagAtom("\xA9nam", "Blue"))));
    std::string const expected = root->recursiveDescriptionWithInset(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&root, &expected] {
            for (int round = 0; round < 200; ++round) {
                EXPECT_EQ(root->recursiveDescriptionWithInset(0), expected);
                EXPECT_EQ(root->allAtomsWithPath("moov/udta/meta/ilst/©nam").size(), 1u);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
}

TEST(KXMP4Atom, AtomForParentReadsOneAtomAndMovesToItsEnd)
{
    auto const data = reader(join(atom("moov", atom("trak")), atom("mdat")));
    auto const movie = KXMP4Atom::atomForParent(nullptr, *data);
    ASSERT_TRUE(movie);
    EXPECT_EQ(data->offset(), 16u);
    EXPECT_THAT(tagsOf(movie->children()), ElementsAre("trak"));
    EXPECT_EQ(movie->children().front()->parent(), movie.get());
    EXPECT_FALSE(movie->rootIsParsed());
    EXPECT_TRUE(KXMP4Atom::atomForParent(nullptr, *data));
    EXPECT_FALSE(KXMP4Atom::atomForParent(nullptr, *data));
}

TEST(KXMP4Atom, RemovedChildrenKeepTheirParentLinkUntilTheParentDies)
{
    auto root = treeOf(join(atom("moov", atom("trak")), atom("mdat"), atom("free")));
    auto const movie = root->children()[0];
    root->addChild(movie); // Every occurrence is removed.
    root->removeChild(*movie);
    EXPECT_THAT(tagsOf(root->children()), ElementsAre("mdat", "free"));
    EXPECT_EQ(movie->parent(), root.get());
    EXPECT_EQ(movie->fullPath(), "ROOT.moov");
    EXPECT_THAT(tagsOf(movie->children()), ElementsAre("trak"));

    auto const media = root->children()[0];
    root->removeAllChildren();
    EXPECT_EQ(media->parent(), root.get());

    root.reset();
    EXPECT_EQ(movie->parent(), nullptr);
    EXPECT_EQ(media->parent(), nullptr);
    EXPECT_EQ(media->fullPath(), "mdat");
}

TEST(KXMP4Atom, AParentLinkThatWasSetAnewOutlivesTheFormerParent)
{
    auto root = treeOf(atom("moov"));
    auto const movie = root->children()[0];
    root->removeChild(*movie);
    KXMP4Atom other;
    movie->setParent(&other);
    root.reset();
    EXPECT_EQ(movie->parent(), &other);
}

TEST(KXMP4Atom, RemovingAnAtomThatIsNoChildChangesNothing)
{
    auto const root = treeOf(join(atom("moov"), atom("free")));
    root->removeChild(*std::make_shared<KXMP4Atom>());
    EXPECT_THAT(tagsOf(root->children()), ElementsAre("moov", "free"));
}

TEST(KXMP4Atom, NullIsNoChild)
{
    KXMP4Atom parent;
    parent.addChild(nullptr);
    EXPECT_THAT(parent.children(), IsEmpty());
}

namespace {

/// Takes every atom for a container, and writes down which children it was given.
class ReadsEverything final : public KXMP4Atom {
public:
    bool isContainerAtom() override { return true; }
    void addChild(Ref child) override
    {
        tags.push_back(child->tag());
        KXMP4Atom::addChild(std::move(child));
    }

    std::vector<std::string> tags;
};

}

TEST(KXMP4Atom, ParserAsksAnAtomOfTheHost)
{
    auto const atomOfHost = std::make_shared<ReadsEverything>();
    atomOfHost->parseWithParent(nullptr, *reader(atom("free", atom("abcd"), atom("efgh"))));
    EXPECT_THAT(atomOfHost->tags, ElementsAre("abcd", "efgh"));
    EXPECT_THAT(tagsOf(atomOfHost->children()), ElementsAre("abcd", "efgh"));

    auto const root = std::make_shared<ReadsEverything>();
    root->parseRootWithAbstractData(*reader(join(ftyp(), atom("free", atom("abcd")))));
    EXPECT_THAT(root->tags, ElementsAre("ftyp", "free"));
    EXPECT_THAT(root->children().back()->children(), IsEmpty());
}

TEST(KXMP4Atom, AddChildLeavesTheParentLinkAlone)
{
    auto const parent = std::make_shared<KXMP4Atom>();
    auto const child = std::make_shared<KXMP4Atom>();
    parent->addChild(child);
    EXPECT_EQ(child->parent(), nullptr);
    parent->removeAllChildren();
    EXPECT_THAT(parent->children(), IsEmpty());
}

TEST(KXMP4Atom, TrackAtomIsTheNearestTrack)
{
    auto const root = treeOf(atom("moov", atom("trak", atom("mdia", atom("trak", atom("free"))))));
    auto const free = root->allAtomsWithPath("moov/trak/mdia/trak/free").front();
    EXPECT_EQ(free->trackAtom(), free->parent());
    EXPECT_EQ(root->children().front()->trackAtom(), nullptr);
    EXPECT_EQ(root->children().front()->trackType(), KXMP4TrackTypeNone);
    EXPECT_EQ(free->rootAtom(), root.get());
}

TEST(KXMP4Atom, PathBelowARootWithoutATagBeginsWithADot)
{
    KXMP4Atom root;
    auto const movie = std::make_shared<KXMP4Atom>();
    movie->setTag("moov");
    movie->setParent(&root);
    root.addChild(movie);
    EXPECT_EQ(movie->fullPath(), ".moov");
}

TEST(KXMP4Atom, TextsTellTheTagAndTheSizeThatAreOverridden)
{
    class Renamed final : public KXMP4Atom {
        std::string tag() const override { return "mine"; }
        std::uint64_t size() const override { return 77; }
    };
    Renamed const atom;
    EXPECT_EQ(atom.description(), "MP4 Atom:mine - 77");
    EXPECT_EQ(atom.fullPathWithSize(), "mine Size:77");
}
