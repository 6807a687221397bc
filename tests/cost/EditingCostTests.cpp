// What hostile files make editing cost, in allocations and in bytes that are read: in proportion to
// their length, and never to its square.

#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"
#include "support/Allocations.h"
#include "support/EditableMovies.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/SystemCalls.h"

#include <gtest/gtest.h>

using namespace build;

namespace {

struct Cost {
    Allocations allocations;
    SystemCalls asked;
};

template <class Work> Cost costOf(Work work)
{
    auto const allocations = Allocations::soFar();
    auto const asked = SystemCalls::soFar();
    work();
    return { Allocations::soFar() - allocations, SystemCalls::soFar() - asked };
}

/// Of what `costOfCount` makes of a count and of four times that, the second may cost at most five
/// times as much; were it in proportion to the square, it would cost sixteen times as much.
template <class CostOfCount> void expectInProportion(std::size_t count, CostOfCount costOfCount)
{
    Cost const once = costOfCount(count), fourTimes = costOfCount(4 * count);
    EXPECT_LE(fourTimes.allocations.count, 5 * once.allocations.count + 100);
    EXPECT_LE(fourTimes.allocations.bytes, 5 * once.allocations.bytes + 100'000);
    EXPECT_LE(fourTimes.asked.calls, 5 * once.asked.calls);
    EXPECT_LE(fourTimes.asked.bytesRead, 5 * once.asked.bytesRead);
}

Bytes repeated(Bytes const& piece, std::size_t count)
{
    return concatenated(std::vector<Bytes>(count, piece));
}

Cost costOfRemovingCovers(KXMDFileMeta& meta, Bytes const& file, bool areRemoved = true)
{
    auto const data = std::make_shared<KXMutableData>(file);
    return costOf([&] { EXPECT_EQ(meta.removeAlbumCoverFromData(data), areRemoved); });
}

}

class EditingCost : public testing::Test {
    LogCapture const log;
};

TEST_F(EditingCost, EditsOfNothingTakeNoMemory)
{
    KXMutableData data(filled(100, 1));
    EXPECT_EQ(costOf([&] { EXPECT_TRUE(data.insertBytesAt({}, 5)); }).allocations.count, 0u);
    EXPECT_EQ(costOf([&] { EXPECT_TRUE(data.removeBytesAt(5, 0)); }).allocations.count, 0u);
}

TEST_F(EditingCost, ManyRangesAreRemovedWithOneAllocation)
{
    KXMutableData data(filled(1000, 1));
    std::vector<KXMutableData::Range> ranges;
    for (std::uint64_t i = 0; i < 100; ++i)
        ranges.push_back({ 10 * i + 5, 1 });
    auto const cost = costOf([&] { EXPECT_TRUE(data.removeRanges(ranges)); });
    EXPECT_EQ(cost.allocations.count, 1u);
    EXPECT_EQ(data.length(), 900u);
}

TEST_F(EditingCost, WhatWasInsertedIsLetGoOnceItIsInOneRow)
{
    constexpr std::uint64_t count = 10;
    for (std::uint64_t const removed : { 500u, 0u }) { // With room in the row, and without.
        KXMutableData data(filled(1000, 1));
        EXPECT_TRUE(data.removeBytesAt(0, removed));
        for (std::uint64_t i = 0; i < count; ++i)
            EXPECT_TRUE(data.insertBytesAt(filled(20, 2), 0));
        auto const cost = costOf([&] { EXPECT_EQ(data.bytes().size(), 1200 - removed); });
        EXPECT_GE(cost.allocations.freed, count) << removed;
    }
}

TEST_F(EditingCost, ManyEmptyCoversOfAnMP3)
{
    for (ID3 const version : { ID3::v22, ID3::v23, ID3::v24 }) {
        bool const isShort = version == ID3::v22;
        Bytes const cover = frameClaiming(version, 1, isShort ? "PIC" : "APIC", zeros(1));
        Bytes const title = textFrame(version, isShort ? "TT2" : "TIT2", "T");
        expectInProportion(20'000, [&](std::size_t count) {
            Bytes const frames = join(title, repeated(cover, count));
            KXMDFileMetaMP3 meta;
            return costOfRemovingCovers(meta, tag(version, frames));
        });
    }
}

TEST_F(EditingCost, FramesOfAnMP3InEachOther)
{
    // Covers of eight bytes, by a size that wraps, and between them frames of four.
    Bytes const cover = join(text("APIC"), u32(0xFFFFFFFE));
    Bytes const overlapping = join(text("APIC"), u32(0xFFFFFFFA));
    for (auto const& piece : { cover, overlapping }) {
        expectInProportion(20'000, [&](std::size_t count) {
            auto const size = static_cast<std::uint32_t>(9 * count);
            KXMDFileMetaMP3 meta;
            auto const data = std::make_shared<KXMutableData>(
                tagClaiming(0x0300, 0, size, repeated(piece, count)));
            return costOf([&] { static_cast<void>(meta.removeAlbumCoverFromData(data)); });
        });
    }
}

TEST_F(EditingCost, CoversThatAreRefusedAreWalkedOnce)
{
    auto const bytesOf = [](std::size_t covers, std::size_t others, bool areRemoved) {
        Bytes const tags = join(repeated(atom("covr"), covers), editable::title);
        Bytes const movie
            = atom("moov", editable::trackWithTables(stco({ 40 })), userDataWithTags(tags));
        Bytes const file = join(ftyp(), movie, repeated(atom("free"), others));
        KXMDFileMetaMP4 meta;
        return costOfRemovingCovers(meta, file, areRemoved).allocations.bytes;
    };
    std::uint64_t const parsedOnce = bytesOf(0, 100'000, true);
    EXPECT_LE(bytesOf(100'000, 0, false), 3 * parsedOnce);
    EXPECT_LE(bytesOf(400, 99'600, false), 3 * parsedOnce);
    // Those that are removed are, each by itself, a parse more.
    EXPECT_LE(bytesOf(3, 100'000, true), 6 * parsedOnce);
}

TEST_F(EditingCost, DeepAtomsThatRunPastTheirParent)
{
    TemporaryFolder const folder;
    constexpr std::size_t moreThanTheWindowsHold = 40'000;
    expectInProportion(moreThanTheWindowsHold, [&](std::size_t depth) {
        Bytes const runsPast = join(u32(16), text("udta"), u32(0x7FFFFFFF), text("stsd"));
        std::vector<Bytes> deep;
        for (std::size_t i = 0; i < depth; ++i) {
            std::size_t const inside = depth * runsPast.size() + 8 * (depth - i);
            deep.push_back(atomClaiming(static_cast<std::uint32_t>(inside), "udta"));
        }
        Bytes const file = join(ftyp(), concatenated(deep), repeated(runsPast, depth),
            editable::moovWithTables(stco({ 40 })));
        std::string const path = folder.write("movie.mp4", file);
        return costOf([&] {
            auto const data = KXAbstractData::abstractDataWithPath(path);
            EXPECT_EQ(
                KXMP4EditSafety(*data).reasonAgainstAddingAlbumCoverOfSize(1000), std::nullopt);
        });
    });
}

TEST_F(EditingCost, ManyTablesAndManyHandlersOfATrack)
{
    expectInProportion(5000, [](std::size_t count) {
        Bytes const media = atom("mdia", hdlr("soun"), atom("minf", atom("stbl", stsd({}))));
        auto const data = reader(atom("moov", atom("trak", repeated(media, count))));
        return costOf([&] {
            auto const root = KXMP4Atom::atomWithAbstractData(*data);
            EXPECT_EQ(root->allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd").size(), count);
        });
    });
}
