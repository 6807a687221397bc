#include "kxmd/core/KXMDFileMetaController.h"

#include "support/Fakes.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/NoThreads.h"
#include "support/Pictures.h"

#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Writes down what is done to it.
class RecordingFile final : public KXDCFile {
public:
    explicit RecordingFile(std::string sourcePath = {})
        : _sourcePath(std::move(sourcePath))
    {
    }

    std::vector<std::string> const& calls() const { return _calls; }

    std::string sourcePath() const override { return _sourcePath; }
    KXDCValue metadataForKey(std::string_view) const override { return {}; }
    void setMetadataForKey(KXDCValue value, std::string_view key) override
    {
        _calls.push_back(std::string(key) + " = " + std::string(KXTextOfValue(value)));
    }
    void setName(std::string name) override { _calls.push_back("setName: " + name); }
    int fileKind() const override { return 0; }
    bool hasDRM() const override { return false; }
    bool isFolder() const override { return false; }
    std::string filename() const override { return {}; }

private:
    std::string const _sourcePath;
    std::vector<std::string> _calls;
};

/// A host's file whose path cannot be told.
class LostFile final : public KXDCFile {
public:
    std::string sourcePath() const override { throw std::runtime_error("lost"); }
    KXDCValue metadataForKey(std::string_view) const override { return {}; }
    void setMetadataForKey(KXDCValue, std::string_view) override { }
    void setName(std::string) override { }
    int fileKind() const override { return 0; }
    bool hasDRM() const override { return false; }
    bool isFolder() const override { return false; }
    std::string filename() const override { return {}; }
};

KXDCFile::Ref fileAt(std::string path) { return std::make_shared<KXDCSimpleFile>(std::move(path)); }

/// What merging the metadata of a file with these bytes does to a file object.
std::vector<std::string> callsOfMerging(Bytes bytes)
{
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader(std::move(bytes)));
    RecordingFile file;
    KXMDFileMetaController::create()->mergeFileMetaIntoFile(*meta, file);
    return file.calls();
}

}

TEST(KXMDFileMetaController, MissingFileGivesAnEmptyObject)
{
    TemporaryFolder const folder;
    auto const file = fileAt(folder.path() / "missing");
    auto const meta = KXMDFileMetaController::create()->fileMetaForFile(*file);
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->metaType(), 0);
    EXPECT_EQ(meta->filesize(), 0u);
}

TEST(KXMDFileMetaController, MissingFileGivesAnEmptyObjectToTheHandler)
{
    TemporaryFolder const folder;
    std::promise<KXMDFileMeta::Ref> answer;
    KXMDFileMetaController::create()->fileMetaForFile(fileAt(folder.path() / "missing"),
        [&](KXMDFileMeta::Ref meta) { answer.set_value(std::move(meta)); });
    auto const meta = answer.get_future().get();
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->metaType(), 0);
}

TEST(KXMDFileMetaController, FileThatThrowsGivesAnEmptyObjectToTheHandler)
{
    LogCapture const log;
    std::promise<KXMDFileMeta::Ref> answer;
    KXMDFileMetaController::create()->fileMetaForFile(std::make_shared<LostFile>(),
        [&](KXMDFileMeta::Ref meta) { answer.set_value(std::move(meta)); });
    auto const meta = answer.get_future().get();
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->metaType(), 0);
    EXPECT_EQ(meta->filesize(), 0u);
    EXPECT_THAT(
        log.lines(), ElementsAre("Metadata: KXMDFileMetaController->a file could not be read"));
}

TEST(KXMDFileMetaController, ReadsTheFileAtTheSourcePath)
{
    TemporaryFolder const folder;
    std::string const path
        = folder.write("a.mp3", tag(ID3::v24, textFrame(ID3::v24, "TALB", "Sea")));
    auto const meta = KXMDFileMetaController::create()->fileMetaForFile(RecordingFile(path));
    EXPECT_EQ(meta->metaType(), 1);
    EXPECT_EQ(meta->metadataForKey("Album"), "Sea");
}

TEST(KXMDFileMetaController, SharedOneIsTheSameOnEveryThread)
{
    std::latch start(2);
    auto const ask = [&start] {
        start.arrive_and_wait();
        return KXMDFileMetaController::sharedController();
    };
    auto first = std::async(std::launch::async, ask);
    auto second = std::async(std::launch::async, ask);
    auto const shared = first.get();
    ASSERT_TRUE(shared);
    EXPECT_EQ(second.get(), shared);
    EXPECT_EQ(KXMDFileMetaController::sharedController(), shared);
    EXPECT_NE(KXMDFileMetaController::create(), shared);
}

TEST(KXMDFileMetaController, BurstIsAnsweredInOrderOnceEachOnOneOtherThread)
{
    constexpr std::size_t requests = 200;
    TemporaryFolder const folder;
    struct Answer {
        std::size_t request;
        std::uint64_t filesize;
        std::thread::id thread;
    };
    std::vector<Answer> answers; // Touched by the queue's thread alone until the promise is kept.
    std::promise<void> done;
    auto const controller = KXMDFileMetaController::create();
    for (std::size_t i = 0; i < requests; ++i) {
        controller->fileMetaForFile(fileAt(folder.write(std::to_string(i), zeros(i))),
            [&, i](KXMDFileMeta::Ref const& meta) {
                answers.push_back({ i, meta->filesize(), std::this_thread::get_id() });
            });
    }
    controller->fileMetaForFile(fileAt(""), [&](auto const&) { done.set_value(); });
    done.get_future().wait();

    ASSERT_EQ(answers.size(), requests);
    EXPECT_NE(answers[0].thread, std::this_thread::get_id());
    for (std::size_t i = 0; i < requests; ++i) {
        EXPECT_EQ(answers[i].request, i);
        EXPECT_EQ(answers[i].filesize, i);
        EXPECT_EQ(answers[i].thread, answers[0].thread);
    }
}

TEST(KXMDFileMetaController, ReturnsBeforeTheAnswer)
{
    auto const controller = KXMDFileMetaController::create();
    std::promise<void> returned, answered;
    controller->fileMetaForFile(fileAt(""), [&](auto const&) {
        returned.get_future().wait(); // Would never end if the caller had to wait for us.
        answered.set_value();
    });
    returned.set_value();
    answered.get_future().wait();
}

TEST(KXMDFileMetaController, WorksWithoutAHandler)
{
    auto const controller = KXMDFileMetaController::create();
    std::promise<void> done;
    controller->fileMetaForFile(fileAt(""), nullptr);
    controller->fileMetaForFile(fileAt(""), [&](auto const&) { done.set_value(); });
    done.get_future().wait();
}

TEST(KXMDFileMetaController, KeepsTheFileUntilItIsRead)
{
    TemporaryFolder const folder;
    auto const controller = KXMDFileMetaController::create();
    std::promise<void> go, done;
    controller->fileMetaForFile(fileAt(""), [&](auto const&) { go.get_future().wait(); });
    auto file = fileAt(folder.write("file", zeros(5)));
    std::uint64_t filesize = 0;
    controller->fileMetaForFile(file, [&](KXMDFileMeta::Ref const& meta) {
        filesize = meta->filesize();
        done.set_value();
    });
    file.reset();
    go.set_value();
    done.get_future().wait();
    EXPECT_EQ(filesize, 5u);
}

TEST(KXMDFileMetaController, AnswersAfterItsOwnerHasLetGo)
{
    std::vector<int> answers;
    std::promise<void> letGo, done;
    auto controller = KXMDFileMetaController::create();
    controller->fileMetaForFile(fileAt(""), [&](auto const&) { letGo.get_future().wait(); });
    for (int i = 0; i < 10; ++i)
        controller->fileMetaForFile(
            fileAt(""), [&answers, i](auto const&) { answers.push_back(i); });
    controller->fileMetaForFile(fileAt(""), [&](auto const&) { done.set_value(); });
    controller.reset();
    letGo.set_value();
    done.get_future().wait();
    EXPECT_THAT(answers, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
}

TEST(KXMDFileMetaController, LastOwnerMayBeItsOwnTask)
{
    std::promise<void> letGo, answered;
    auto controller = KXMDFileMetaController::create();
    std::weak_ptr<KXMDFileMetaController> const alive = controller;
    controller->fileMetaForFile(fileAt(""), [&](auto const&) {
        letGo.get_future().wait();
        EXPECT_FALSE(alive.expired());
        answered.set_value();
    });
    controller.reset();
    letGo.set_value();
    answered.get_future().wait();
    // Nothing can tell us of the teardown, which follows on the queue's thread within a moment.
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!alive.expired() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_TRUE(alive.expired());
}

TEST(KXMDFileMetaController, MergeWithoutTagsChangesNothing)
{
    EXPECT_THAT(callsOfMerging(text("no media")), IsEmpty());
    EXPECT_THAT(callsOfMerging(tag(ID3::v23, {})), IsEmpty());
}

TEST(KXMDFileMetaController, MergeOfATitleAloneSetsItAndRenames)
{
    Bytes const movie
        = join(ftyp(), atom("moov", userDataWithTags(tagAtom("\xA9nam", "Bl\u00FC"))));
    EXPECT_THAT(callsOfMerging(movie), ElementsAre("Name = Bl\u00FC", "setName: Bl\u00FC"));
}

TEST(KXMDFileMetaController, MergeWithoutATitleDoesNotRename)
{
    EXPECT_THAT(callsOfMerging(tag(ID3::v23, textFrame(ID3::v23, "TPE1", "Ann"))),
        ElementsAre("Artist = Ann"));
}

TEST(KXMDFileMetaController, MergeSetsAllTagsInTheirOrder)
{
    Bytes const frames
        = join(textFrame(ID3::v23, "TIT2", "Blue"), textFrame(ID3::v23, "TPE1", "Ann"),
            textFrame(ID3::v23, "TPE2", "Various"), textFrame(ID3::v23, "TALB", "Sea"));
    EXPECT_THAT(callsOfMerging(tag(ID3::v23, frames)),
        ElementsAre("Album = Sea", "Album Artist = Various", "Artist = Ann", "Name = Blue",
            "setName: Blue"));
}

TEST(KXMDFileMetaController, MergeTakesAnEmptyTitleAsItIs)
{
    KXMDFileMetaEmpty meta;
    meta.setMetadataForKey("", "Name");
    RecordingFile file;
    KXMDFileMetaController::create()->mergeFileMetaIntoFile(meta, file);
    EXPECT_THAT(file.calls(), ElementsAre("Name = ", "setName: "));
}

TEST(KXMDFileMetaController, MergeLeavesOtherEntriesOfTheFile)
{
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(
        *reader(tag(ID3::v23, textFrame(ID3::v23, "TPE1", "Ann"))));
    KXDCSimpleFile file("/Music/01.mp3");
    file.setMetadataForKey("Sea", "Album");
    file.setMetadataForKey("old", "Artist");
    KXMDFileMetaController::create()->mergeFileMetaIntoFile(*meta, file);
    EXPECT_EQ(KXTextOfValue(file.metadataForKey("Album")), "Sea");
    EXPECT_EQ(KXTextOfValue(file.metadataForKey("Artist")), "Ann");
    EXPECT_EQ(file.name(), "01.mp3");
}

TEST(KXMDFileMetaController, WithoutAThreadTheHandlerIsCalledOnceBeforeTheRequestReturns)
{
    LogCapture const log;
    TemporaryFolder const folder;
    NoThreads const noThreads;
    auto controller = KXMDFileMetaController::create();
    std::weak_ptr<KXMDFileMetaController> const alive = controller;
    std::vector<std::uint64_t> sizes;
    controller->fileMetaForFile(fileAt(folder.write("file", zeros(5))),
        [&sizes](KXMDFileMeta::Ref const& meta) { sizes.push_back(meta->filesize()); });
    EXPECT_THAT(sizes, ElementsAre(5u));
    controller.reset(); // No work that waits for a thread keeps it.
    EXPECT_TRUE(alive.expired());
}

TEST(KXMDFileMetaController, NoFileIsAFileThatCannotBeRead)
{
    auto const controller = KXMDFileMetaController::create();
    std::promise<KXMDFileMeta::Ref> answer;
    controller->fileMetaForFile(
        nullptr, [&](KXMDFileMeta::Ref meta) { answer.set_value(std::move(meta)); });
    auto const meta = answer.get_future().get();
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->metaType(), KXMDMetaTypeUnknown);
    EXPECT_EQ(meta->filesize(), 0u);
}

TEST(KXMDFileMetaController, HandsItsPlatformToTheObjectsThatItMakes)
{
    TemporaryFolder const folder;
    FakeMachine const machine;
    machine.pictureLoader->setJPGRepresentation(KXData(zeros(70)));
    auto const file
        = fileAt(folder.write("a.mp3", tag(ID3::v23, textFrame(ID3::v23, "TALB", "Sea"))));
    auto const controller = KXMDFileMetaController::createWithPlatform(machine.platform());
    auto const meta = controller->fileMetaForFile(*file);
    EXPECT_EQ(meta->albumCoverSizeForImage(pictures::solid(1, 1, pictures::red)), 24u + 70);
}
