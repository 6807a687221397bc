// What reading a file's metadata asks of the kernel. A program of its own, since it counts the
// calls by functions that stand before the C library's.

#include "kxmd/base/KXSanitizersPrivate.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"
#include "support/Allocations.h"
#include "support/Files.h"
#include "support/SystemCalls.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

using namespace build;

namespace {

struct Reading {
    SystemCalls asked;
    KXMDFileMeta::Ref meta;
};

Reading readingOf(std::string const& path)
{
    auto const before = SystemCalls::soFar();
    auto const meta = KXMDFileMeta::fileMetaWithSourcePath(path);
    return { SystemCalls::soFar() - before, meta };
}

constexpr std::size_t coverLength = 100'000;
constexpr std::uint64_t mostBytes = 16 * 1024;
// Most of them lists of children; with a sanitizer each atom by itself as well.
constexpr std::uint64_t mostAllocations = KXMD_HAS_ADDRESS_SANITIZER ? 52 : 36;

Bytes movie(std::vector<std::uint32_t> const& chunkOffsets = { 0 })
{
    return atom("moov",
        track("soun", stsd(soundEntry("mp4a", esds(0x40, 1, 2, bytes({ 0x12, 0x10 })))),
            chunkOffsets),
        userDataWithTags(join(tagAtom("\xA9nam", "Title"), covr(13, jpeg(300, 300, coverLength)),
            tagAtom("aART", "Band"))));
}

void expectWholeMetadata(KXMDFileMeta const& meta)
{
    EXPECT_EQ(meta.metadataForKey("Name"), "Title");
    EXPECT_EQ(meta.metadataForKey("Album Artist"), "Band");
    EXPECT_TRUE(meta.hasValidAlbumCover());
    EXPECT_EQ(meta.audioCodecsInfo().at(0).profile(), 2);
}

/// A file with `count` media atoms of this size before the movie. The media is never written
/// and takes no room on the disk.
std::string sparseMovie(TemporaryFolder const& folder, std::uint32_t mediaSize, int count)
{
    std::string const path = folder.write("movie.mp4", ftyp());
    std::uint64_t end = ftyp().size();
    auto const append = [&path](Bytes const& bytes) {
        std::ofstream file(path, std::ios::app | std::ios::binary);
        file.write(reinterpret_cast<char const*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
    };
    for (int i = 0; i < count; ++i) {
        append(atomClaiming(mediaSize, "mdat"));
        end += mediaSize;
        std::filesystem::resize_file(path, end);
    }
    append(movie());
    return path;
}

}

TEST(ReadingCost, MP3WithCoverTakesAtMostFiveCallsAndNoCoverBytes)
{
    TemporaryFolder const folder;
    Bytes const frames = join(textFrame(ID3::v23, "TIT2", "Title"),
        pictureFrame(ID3::v23, jpeg(300, 300, coverLength)), textFrame(ID3::v23, "TPE2", "Band"));
    auto const [asked, meta]
        = readingOf(folder.write("song.mp3", join(tag(ID3::v23, frames), zeros(50'000))));
    EXPECT_EQ(meta->metadataForKey("Name"), "Title");
    EXPECT_EQ(meta->metadataForKey("Album Artist"), "Band");
    EXPECT_TRUE(meta->hasValidAlbumCover());
    EXPECT_LE(asked.calls, 5u);
    EXPECT_LE(asked.bytesRead, mostBytes);
}

TEST(ReadingCost, MovieFirstTakesAtMostFiveCalls)
{
    TemporaryFolder const folder;
    auto const [asked, meta]
        = readingOf(folder.write("song.m4a", join(ftyp(), movie(), atom("mdat", zeros(1000)))));
    expectWholeMetadata(*meta);
    EXPECT_LE(asked.calls, 5u);
    EXPECT_LE(asked.bytesRead, mostBytes);
}

TEST(ReadingCost, MovieLastTakesAtMostEightCalls)
{
    TemporaryFolder const folder;
    auto const [asked, meta]
        = readingOf(folder.write("song.m4a", join(ftyp(), atom("mdat", zeros(100'000)), movie())));
    expectWholeMetadata(*meta);
    EXPECT_LE(asked.calls, 8u);
    EXPECT_LE(asked.bytesRead, mostBytes);
}

TEST(ReadingCost, ChunkOffsetTablesAreNotRead)
{
    TemporaryFolder const folder;
    auto const [asked, meta] = readingOf(folder.write(
        "song.m4a", join(ftyp(), movie(std::vector<std::uint32_t>(100'000)), atom("mdat"))));
    expectWholeMetadata(*meta);
    EXPECT_LE(asked.bytesRead, mostBytes);
}

TEST(ReadingCost, TenGigabytesCostWhatThreeHundredKilobytesCost)
{
    // Sizes have 32 bits: ten gigabytes take three media atoms.
    TemporaryFolder const folder;
    auto const small = readingOf(sparseMovie(folder, 100'000, 3));
    auto const large = readingOf(sparseMovie(folder, 3'400'000'000, 3));
    expectWholeMetadata(*large.meta);
    EXPECT_GT(large.meta->filesize(), 10'000'000'000u);
    EXPECT_EQ(large.asked.calls, small.asked.calls);
    EXPECT_EQ(large.asked.bytesRead, small.asked.bytesRead);
}

TEST(ReadingCost, WhatIsNoRegularFileIsNotEvenOpened)
{
    // The open of a FIFO would wake its writer; that of a device may do anything.
    TemporaryFolder const folder;
    std::string const fifo = folder.path() / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (std::string const& path : { fifo, folder.path().string(), std::string("/dev/null") }) {
        auto const [asked, meta] = readingOf(path);
        EXPECT_EQ(meta->filesize(), 0u);
        EXPECT_EQ(asked.calls, 1u);
        EXPECT_EQ(asked.opened, 0u);
    }
}

TEST(ReadingCost, FileThatIsNoMediaIsReadOnce)
{
    TemporaryFolder const folder;
    auto const [asked, meta] = readingOf(folder.write("text.txt", text("nothing but text")));
    EXPECT_EQ(meta->metaType(), KXMDMetaTypeUnknown);
    EXPECT_EQ(asked.calls, 4u); // As few as there can be: all of them are seen.
}

TEST(ReadingCost, ToJudgeAnEditTakesHeadersAndTablesAndNoMedia)
{
    TemporaryFolder const folder;
    auto const costOf = [&](std::uint32_t mediaSize) {
        std::string const path = sparseMovie(folder, mediaSize, 3);
        auto const before = SystemCalls::soFar();
        auto const data = KXAbstractData::abstractDataWithPath(path);
        KXMP4EditSafety const safety(*data);
        EXPECT_EQ(safety.reasonAgainstRemovingAlbumCover(), std::nullopt);
        EXPECT_EQ(safety.reasonAgainstAddingAlbumCoverOfSize(20'000), std::nullopt);
        EXPECT_EQ(
            KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*data), std::nullopt);
        return SystemCalls::soFar() - before;
    };
    auto const small = costOf(100'000), large = costOf(3'400'000'000);
    EXPECT_LE(large.calls, small.calls + 5);
    EXPECT_LE(large.bytesRead, small.bytesRead + 5000);
    EXPECT_LE(large.bytesRead, 300'000u);
}

TEST(ReadingCost, WhatEndsWithAWindowTakesNoOtherOne)
{
    constexpr std::uint64_t head = 8 * 1024;
    TemporaryFolder const folder;
    auto const data
        = KXAbstractData::abstractDataWithPath(folder.write("file", filled(100'000, 7)));
    std::uint8_t first;
    ASSERT_TRUE(data->readUInt8To(first)); // Brings the head in.
    data->setOffset(50'000);
    ASSERT_TRUE(data->readUInt8To(first)); // And another window.
    auto const before = SystemCalls::soFar();
    std::uint32_t last;
    data->setOffset(head - 4);
    EXPECT_TRUE(data->readUInt32To(last, KXSwap::yes));
    EXPECT_EQ((SystemCalls::soFar() - before).calls, 0u);
    data->setOffset(head - 3);
    EXPECT_TRUE(data->readUInt32To(last, KXSwap::yes));
    EXPECT_EQ((SystemCalls::soFar() - before).calls, 1u);
}

TEST(ReadingCost, KilobytesAreServedFromTheWindow)
{
    TemporaryFolder const folder;
    auto const data
        = KXAbstractData::abstractDataWithPath(folder.write("file", filled(100'000, 7)));
    std::vector<std::uint8_t> bytes(1024);
    EXPECT_TRUE(data->readBytesTo(bytes.data(), bytes.size()));
    auto const before = SystemCalls::soFar();
    EXPECT_TRUE(data->readBytesTo(bytes.data(), bytes.size()));
    EXPECT_EQ((SystemCalls::soFar() - before).calls, 0u);
}

TEST(ReadingCost, TheMemoryOfAWindowIsUsedAgain)
{
    TemporaryFolder const folder;
    auto const data
        = KXAbstractData::abstractDataWithPath(folder.write("file", filled(600'000, 7)));
    std::uint8_t byte;
    auto const readAt = [&](std::uint64_t position) {
        data->setOffset(position);
        EXPECT_TRUE(data->readUInt8To(byte));
    };
    constexpr std::uint64_t slots = 8, step = 50'000;
    for (std::uint64_t i = 0; i < slots; ++i)
        readAt(i * step);
    auto const before = Allocations::soFar();
    for (std::uint64_t i = 1; i < slots; ++i)
        readAt((slots + i) % (slots + 1) * step);
    EXPECT_EQ((Allocations::soFar() - before).count, 0u);
}

TEST(ReadingCost, ReadsGoOnWhereTheSystemStopped)
{
    Bytes expected;
    for (int i = 0; i < 5000; ++i)
        expected.push_back(static_cast<std::uint8_t>(i * 7 >> 4));
    TemporaryFolder const folder;
    std::string const path = folder.write("file", expected);
    auto const data = KXAbstractData::abstractDataWithPath(path);
    HesitantReads const hesitant;
    Bytes read(expected.size());
    EXPECT_TRUE(data->readBytesTo(read.data(), read.size()));
    EXPECT_EQ(read, expected);
    std::filesystem::resize_file(path, 100);
    data->setOffset(0);
    EXPECT_FALSE(data->readBytesTo(read.data(), read.size()));
    EXPECT_FALSE(data->readError());
}

TEST(ReadingCost, ReadingStraightOnDoublesTheWindowUpTo64Kilobytes)
{
    constexpr std::uint64_t kilobyte = 1024;
    TemporaryFolder const folder;
    auto const data
        = KXAbstractData::abstractDataWithPath(folder.write("file", filled(600 * kilobyte, 7)));
    auto const costOfReading = [&](std::uint64_t from, std::uint64_t length) {
        auto const before = SystemCalls::soFar();
        data->setOffset(from);
        std::uint32_t word;
        for (std::uint64_t read = 0; read < length; read += sizeof word)
            EXPECT_TRUE(data->readUInt32To(word, KXSwap::yes));
        return SystemCalls::soFar() - before;
    };
    constexpr auto fromTheHead = (8 + 16 + 32 + 64 + 64) * kilobyte;
    auto const head = costOfReading(0, fromTheHead);
    EXPECT_EQ(head.calls, 5u);
    EXPECT_EQ(head.bytesRead, fromTheHead);
    constexpr auto afterAJump = (2 + 4 + 8 + 16 + 32 + 64 + 64) * kilobyte;
    auto const jump = costOfReading(300 * kilobyte, afterAJump);
    EXPECT_EQ(jump.calls, 7u);
    EXPECT_EQ(jump.bytesRead, afterAJump);
}

TEST(ReadingCost, ReadingGoesOnFromAWindowThatWasReturnedTo)
{
    constexpr std::uint64_t kilobyte = 1024, head = 8 * kilobyte;
    TemporaryFolder const folder;
    auto const data
        = KXAbstractData::abstractDataWithPath(folder.write("file", filled(600 * kilobyte, 7)));
    std::uint8_t byte;
    for (std::uint64_t const position : { std::uint64_t { 0 }, 300 * kilobyte, head - 1 }) {
        data->setOffset(position);
        EXPECT_TRUE(data->readUInt8To(byte));
    }
    auto const before = SystemCalls::soFar();
    EXPECT_TRUE(data->readUInt8To(byte));
    EXPECT_EQ((SystemCalls::soFar() - before).bytesRead, 2 * head);
}

TEST(ReadingCost, TheHeadAndTheSevenWindowsReadLastAreKept)
{
    TemporaryFolder const folder;
    auto const data
        = KXAbstractData::abstractDataWithPath(folder.write("file", filled(600'000, 7)));
    auto const callsToReadAt = [&](std::uint64_t position) {
        auto const before = SystemCalls::soFar();
        std::uint8_t byte;
        data->setOffset(position);
        EXPECT_TRUE(data->readUInt8To(byte));
        return (SystemCalls::soFar() - before).calls;
    };
    constexpr std::uint64_t step = 50'000;
    for (std::uint64_t i = 0; i < 9; ++i)
        EXPECT_EQ(callsToReadAt(i * step), 1u) << i;
    for (std::uint64_t const i : { 0, 2, 3, 4, 5, 6, 7, 8 })
        EXPECT_EQ(callsToReadAt(i * step), 0u) << i;
    EXPECT_EQ(callsToReadAt(step), 1u);
}

TEST(ReadingCost, WhatIsExpectedIsBroughtInAtOnceWhereItIsShort)
{
    constexpr std::uint64_t kilobyte = 1024, start = 300 * kilobyte;
    TemporaryFolder const folder;
    std::string const path = folder.write("file", filled(600 * kilobyte, 7));
    auto const bytesOfJumpTo = [&](std::uint64_t position, std::uint64_t length) {
        auto const data = KXAbstractData::abstractDataWithPath(path);
        std::uint8_t byte;
        EXPECT_TRUE(data->readUInt8To(byte)); // Brings the head in.
        data->expectReadsFrom(start, length);
        auto const before = SystemCalls::soFar();
        data->setOffset(position);
        EXPECT_TRUE(data->readUInt8To(byte));
        return (SystemCalls::soFar() - before).bytesRead;
    };
    EXPECT_EQ(bytesOfJumpTo(start, 32 * kilobyte), 32 * kilobyte);
    EXPECT_EQ(bytesOfJumpTo(start + 100, 32 * kilobyte), 32 * kilobyte - 100);
    for (std::uint64_t const length : { 32 * kilobyte + 1, kilobyte, std::uint64_t { 0 } })
        EXPECT_EQ(bytesOfJumpTo(start, length), 2 * kilobyte) << length;
    for (std::uint64_t const position : { start - 1, start + 32 * kilobyte })
        EXPECT_EQ(bytesOfJumpTo(position, 32 * kilobyte), 2 * kilobyte) << position;
}

TEST(ReadingCost, TablesOfAShortMovieAtItsEndTakeThreeReads)
{
    TemporaryFolder const folder;
    auto const tracks = [] {
        std::vector<std::uint32_t> const chunks(2500);
        return join(track("vide", stsd(videoEntry("avc1", 32, 18)), chunks),
            track(
                "soun", stsd(soundEntry("mp4a", esds(0x40, 1, 2, bytes({ 0x12, 0x10 })))), chunks));
    };
    auto const [asked, meta] = readingOf(folder.write("movie.mp4",
        join(ftyp(), atom("mdat", zeros(100'000)),
            atom("moov", join(tracks(), userDataWithTags(tagAtom("\xA9nam", "Title")))))));
    EXPECT_EQ(asked.calls, 6u); // stat, open, the head, the movie's head, the rest of it, close.
    EXPECT_EQ(meta->metadataForKey("Name"), "Title");
    EXPECT_EQ(meta->audioCodecsInfo().at(0).profile(), 2);
}

TEST(ReadingCost, AtomsOfOneFileTakeFewAllocations)
{
    TemporaryFolder const folder;
    std::string const path
        = folder.write("song.m4a", join(ftyp(), movie(), atom("mdat", zeros(1000))));
    auto const before = Allocations::soFar();
    auto const meta = KXMDFileMeta::fileMetaWithSourcePath(path);
    EXPECT_LE((Allocations::soFar() - before).count, mostAllocations);
    expectWholeMetadata(*meta);
}
