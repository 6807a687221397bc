#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"

#include "support/AtomTrees.h"
#include "support/Fakes.h"
#include "support/Files.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <limits>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
namespace files = std::filesystem;

namespace {

Bytes const media = atom("mdat", filled(64, 'm'));
Bytes const nestedEntry = atom("mp4a", zeros(4));

/// A sound sample entry with the extension that QuickTime adds, and what is nested in it.
Bytes entryWithWave(Bytes const& nested)
{
    return soundEntry("mp4a",
        atom("wave", atom("frma", text("mp4a")), nested, atom("esds", zeros(4)), u32(8), u32(0)), 2,
        1);
}

/// A movie of one track, whose two chunks are `media`, with these atoms after the track.
Bytes movie(Bytes const& entry, Bytes const& afterTrack)
{
    auto const withChunkAt = [&](std::uint32_t chunk) {
        auto const sound = track("soun", stsd(entry), { chunk, chunk + 32 });
        return join(ftyp(), atom("moov", sound, afterTrack));
    };
    auto const start = static_cast<std::uint32_t>(withChunkAt(0).size() + 8);
    return join(withChunkAt(start), media);
}

Bytes const plainMovie = movie(soundEntry("mp4a"), {});

Bytes bytesOf(KXAbstractData& data)
{
    Bytes bytes(data.length());
    EXPECT_TRUE(data.readBytesTo(bytes.data(), bytes.size()));
    return bytes;
}

}

class KXMDFileProcessorCleanIPhoneVideoTest : public testing::Test {
protected:
    KXMDFileProcessorCleanIPhoneVideoTest() { files::create_directory(temporaryFolder()); }

    files::path temporaryFolder() const { return folder.path() / "tmp"; }

    KXMDFileProcessorCleanIPhoneVideo processor() const
    {
        auto const platform = std::make_shared<KXPlatform>(*KXPlatform::platformOfThisMachine());
        platform->fileManager = fileManager;
        platform->temporaryFolders = temporaryFolders;
        return KXMDFileProcessorCleanIPhoneVideo(platform);
    }

    /// Every file in the temporary folders.
    std::vector<files::path> copies() const
    {
        std::vector<files::path> found;
        for (auto const& path : leftovers()) {
            if (files::is_regular_file(path))
                found.push_back(path);
        }
        return found;
    }

    /// The same, folders included.
    std::vector<files::path> leftovers() const
    {
        std::vector<files::path> found;
        for (auto const& entry : files::recursive_directory_iterator(temporaryFolder()))
            found.push_back(entry.path());
        return found;
    }

    static KXDCSimpleFileProxy proxyOf(std::string sourcePath)
    {
        return { std::make_shared<KXDCSimpleFile>(std::move(sourcePath)), "/Phone/Clip.mov" };
    }

    std::string write(Bytes const& bytes) const { return folder.write("Clip.mov", bytes); }

    /// The file with these bytes, cleaned.
    Bytes cleaned(Bytes const& bytes) const
    {
        auto const data = processor().processedFileDataForPath(write(bytes));
        return data ? bytesOf(*data) : Bytes();
    }

    std::uint64_t predicted(Bytes const& bytes, std::uint64_t filesize) const
    {
        return processor().processedFilesizeForFileProxy(proxyOf(write(bytes)), filesize);
    }

    TemporaryFolder const folder;
    std::shared_ptr<FakeFileManager> const fileManager = std::make_shared<FakeFileManager>();
    std::shared_ptr<FakeTemporaryFolders> const temporaryFolders
        = std::make_shared<FakeTemporaryFolders>(temporaryFolder().string());
};

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, UserDataIsRemovedAndChunkOffsetsFollow)
{
    auto const file = movie(soundEntry("mp4a"), atom("udta", zeros(1192)));
    EXPECT_EQ(cleaned(file), plainMovie);
    EXPECT_EQ(file.size() - plainMovie.size(), 1200u);
    EXPECT_EQ(predicted(file, file.size()), file.size() - 1200);
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, NestedSampleEntryIsRemovedWithoutUserDataToo)
{
    auto const file = movie(entryWithWave(nestedEntry), {});
    EXPECT_EQ(cleaned(file), movie(entryWithWave({}), {}));
    EXPECT_EQ(predicted(file, file.size()), file.size() - 12);
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, BothAreRemoved)
{
    auto const file = movie(entryWithWave(join(nestedEntry, nestedEntry)), atom("udta", zeros(9)));
    EXPECT_EQ(cleaned(file), movie(entryWithWave({}), {}));
    EXPECT_EQ(predicted(file, file.size()), cleaned(file).size());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, TwoUserDataAtomsAreBothRemoved)
{
    auto const file
        = movie(soundEntry("mp4a"), join(atom("udta", zeros(100)), atom("udta", zeros(7))));
    EXPECT_EQ(cleaned(file), plainMovie);
    EXPECT_EQ(predicted(file, file.size()), plainMovie.size());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, UserDataElsewhereStays)
{
    auto const file = movie(soundEntry("mp4a"), atom("free", zeros(8)));
    auto const other = join(file, atom("udta", zeros(8)));
    EXPECT_EQ(cleaned(other), other);
    EXPECT_EQ(predicted(other, 4711), 4711u);
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, WithNeitherTheSourceItselfIsRead)
{
    auto const path = write(plainMovie);
    auto const data = processor().processedFileDataForPath(path);
    ASSERT_TRUE(data);
    EXPECT_EQ(bytesOf(*data), plainMovie);
    EXPECT_EQ(processor().processedFilesizeForFileProxy(proxyOf(path), 4711), 4711u);
    EXPECT_TRUE(files::is_empty(temporaryFolder()));
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, CopyHasTheNameOfTheSourceInAFolderOfItsOwn)
{
    auto const path = write(movie(soundEntry("mp4a"), atom("udta")));
    for (std::size_t count = 1; count <= 2; ++count) {
        ASSERT_TRUE(processor().processedFileDataForPath(path));
        ASSERT_EQ(copies().size(), count);
    }
    for (auto const& copy : copies()) {
        EXPECT_EQ(copy.filename(), "Clip.mov");
        EXPECT_THAT(copy.parent_path().filename().string(), StartsWith("metadata-video"));
        EXPECT_EQ(copy.parent_path().parent_path(), temporaryFolder());
    }
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, LongestNameIsNoObstacle)
{
    std::string const name = std::string(251, 'n').append(".mov");
    auto const path = folder.write(name, movie(soundEntry("mp4a"), atom("udta")));
    auto const data = processor().processedFileDataForPath(path);
    ASSERT_TRUE(data);
    EXPECT_EQ(bytesOf(*data), plainMovie);
    ASSERT_EQ(copies().size(), 1u);
    EXPECT_EQ(copies().front().filename(), name);
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, ProxyGivesThePathAndTheReaderIsNotUsed)
{
    auto const path = write(movie(soundEntry("mp4a"), atom("udta")));
    for (auto const& given : { KXAbstractData::Ref(), reader(text("given")) }) {
        auto const data = processor().processedFileDataForFileProxy(proxyOf(path), given);
        ASSERT_TRUE(data);
        EXPECT_EQ(bytesOf(*data), plainMovie);
        EXPECT_FALSE(std::dynamic_pointer_cast<KXMutableAbstractData>(data));
    }
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, SourceStaysAsItIs)
{
    auto const file = movie(entryWithWave(nestedEntry), atom("udta", zeros(100)));
    auto const path = write(file);
    ASSERT_TRUE(processor().processedFileDataForPath(path));
    EXPECT_EQ(bytesOfFile(path), file);
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, SizeIsNotBoundBelow)
{
    auto const file = movie(soundEntry("mp4a"), atom("udta", zeros(1192)));
    EXPECT_EQ(predicted(file, 1199), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(predicted(file, 1200), 0u);
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, FileThatCannotBeReadWholeGivesTheSource)
{
    auto const file = movie(soundEntry("mp4a"), atom("udta", zeros(100)));
    fileManager->failToRead();
    EXPECT_EQ(cleaned(file), file);
    EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, WithoutATemporaryFolderTheSourceIsGiven)
{
    auto const file = movie(soundEntry("mp4a"), atom("udta", zeros(100)));
    temporaryFolders->fail();
    EXPECT_EQ(cleaned(file), file);
    EXPECT_EQ(fileManager->writes(), 0u);
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, CopyThatCannotBeWrittenLeavesNoFolderBehind)
{
    auto const file = movie(soundEntry("mp4a"), atom("udta", zeros(100)));
    fileManager->failToWrite();
    EXPECT_EQ(cleaned(file), file);
    EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, HostThatThrowsInsteadOfWritingLeavesNoFolderBehind)
{
    fileManager->throwInsteadOfWriting();
    EXPECT_THROW(cleaned(movie(soundEntry("mp4a"), atom("udta", zeros(100)))), std::runtime_error);
    EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, NothingToCleanIsNotReadWholeAndMakesNoFolder)
{
    EXPECT_EQ(cleaned(plainMovie), plainMovie);
    EXPECT_EQ(fileManager->reads(), 0u);
    EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, ProxyWithoutAFileGivesNothing)
{
    KXDCSimpleFileProxy const proxy(nullptr, "/Phone/Clip.mov");
    EXPECT_FALSE(processor().processedFileDataForFileProxy(proxy, nullptr));
    EXPECT_EQ(processor().processedFilesizeForFileProxy(proxy, 4711), 4711u);
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, SourceThatIsNotThereGivesNothing)
{
    for (std::string const& path :
        { std::string(), (folder.path() / "missing").string(), folder.path().string() }) {
        EXPECT_FALSE(processor().processedFileDataForPath(path));
        EXPECT_EQ(processor().processedFilesizeForFileProxy(proxyOf(path), 4711), 4711u);
    }
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, RefusedRemovalEndsTheLoop)
{
    // The movie and its user data claim more bytes than there are.
    auto const file = join(ftyp(),
        atomClaiming(500, "moov", track("soun", stsd(soundEntry("mp4a"))),
            atomClaiming(400, "udta", zeros(4))));
    EXPECT_EQ(cleaned(file), file);
    EXPECT_EQ(predicted(file, 1000), 600u);
    EXPECT_THAT(copies(), IsEmpty());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, RefusedRemovalKeepsWhatWasRemovedBefore)
{
    auto const udta = atom("udta", zeros(4));
    auto const file = join(ftyp(),
        atomClaiming(500, "moov", udta, track("soun", stsd(soundEntry("mp4a"))),
            atomClaiming(400, "udta", zeros(4))));
    EXPECT_EQ(cleaned(file).size(), file.size() - udta.size());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, OffsetThatCannotBeCorrectedIsNoReasonToKeepTheAtom)
{
    // The chunk offset table claims one entry more than there are bytes for, at the file's end.
    auto const udta = atom("udta", zeros(4));
    auto const file = join(ftyp(),
        atom("moov", udta,
            atom("trak",
                atom("mdia",
                    atom("minf",
                        atom("stbl", join(u32(20), text("stco"), u32(0), u32(2), u32(0x7000))))))));
    EXPECT_EQ(cleaned(file).size(), file.size() - udta.size());
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, ManyAtomsAreAllRemovedOrNone)
{
    auto const moviesWith = [](std::size_t count) {
        return movie(
            soundEntry("mp4a"), concatenated(std::vector<Bytes>(count, atom("udta", zeros(1)))));
    };
    EXPECT_EQ(cleaned(moviesWith(1000)), plainMovie);
    // Each removal costs a pass over the file: a file made of such atoms would take hours.
    LogCapture const log;
    auto const full = moviesWith(100'000);
    EXPECT_EQ(cleaned(full), full);
    std::string const refusal
        = "Metadata: KXMDFileProcessorCleanIPhoneVideo->too much user data, none is removed";
    EXPECT_THAT(log.lines(), ElementsAre(refusal));
    EXPECT_EQ(predicted(full, full.size()), full.size());
    EXPECT_THAT(KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*reader(full)),
        testing::Optional(testing::HasSubstr("too much user data")));
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, EveryTruncationIsSurvived)
{
    auto const file = movie(entryWithWave(nestedEntry), atom("udta", zeros(20)));
    for (std::size_t length = 0; length < file.size(); ++length) {
        Bytes const cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_LE(cleaned(cut).size(), length);
        static_cast<void>(predicted(cut, length));
    }
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, CleanedDataIsWhatTheCopyHolds)
{
    for (Bytes const& file : { movie(entryWithWave(nestedEntry), atom("udta", zeros(20))),
             movie(soundEntry("mp4a"), join(atom("udta"), atom("udta", zeros(3)))), plainMovie }) {
        auto const data = std::make_shared<KXMutableData>(file);
        EXPECT_TRUE(KXMDFileProcessorCleanIPhoneVideo::cleanData(data));
        EXPECT_THAT(data->bytes(), testing::ElementsAreArray(cleaned(file)));
    }
    EXPECT_FALSE(KXMDFileProcessorCleanIPhoneVideo::cleanData(nullptr));
}

TEST_F(KXMDFileProcessorCleanIPhoneVideoTest, WhatCannotAllBeRemovedIsAReason)
{
    auto const cutOff = join(ftyp(),
        atomClaiming(500, "moov", atom("udta", zeros(4)), track("soun", stsd(soundEntry("mp4a"))),
            atomClaiming(400, "udta", zeros(4))));
    EXPECT_THAT(KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*reader(cutOff)),
        testing::Optional(testing::HasSubstr("past the end of the file")));
    auto const data = std::make_shared<KXMutableData>(cutOff);
    EXPECT_FALSE(KXMDFileProcessorCleanIPhoneVideo::cleanData(data));
}
