#include "kxmd/processors/KXMDFileProcessorConvertALAC.h"

#include "support/Fakes.h"
#include "support/Files.h"

#include <gmock/gmock.h>

#include <filesystem>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;
namespace files = std::filesystem;

class KXMDFileProcessorConvertALACTest : public testing::Test {
protected:
    static KXDCSimpleFileProxy proxyOf(std::string sourcePath)
    {
        return { std::make_shared<KXDCSimpleFile>(std::move(sourcePath)), "/Phone/a.m4a" };
    }

    KXMDFileProcessorConvertALAC processor() const
    {
        auto const platform = std::make_shared<KXPlatform>(*KXPlatform::platformOfThisMachine());
        platform->taskRunner = taskRunner;
        platform->fileManager = fileManager;
        platform->temporaryFolders
            = std::make_shared<FakeTemporaryFolders>(temporaryFolder().string());
        return KXMDFileProcessorConvertALAC(platform);
    }

    /// Not there at first, and its parent neither.
    files::path temporaryFolder() const { return folder.path() / "cache" / "tmp"; }

    /// Named by the SHA-1 of "/Music/a.m4a".
    std::string cachePath() const
    {
        return temporaryFolder() / "5c381405c86c8ba8d36406a3c3e58b9c2a561001";
    }

    std::string textOf(KXAbstractData& data) const
    {
        std::string text(data.length(), '\0');
        EXPECT_TRUE(data.readBytesTo(reinterpret_cast<std::uint8_t*>(text.data()), text.size()));
        return text;
    }

    TemporaryFolder const folder;
    std::shared_ptr<FakeTaskRunner> const taskRunner = std::make_shared<FakeTaskRunner>();
    std::shared_ptr<FakeFileManager> const fileManager = std::make_shared<FakeFileManager>();
    KXDCSimpleFileProxy const proxy = proxyOf("/Music/a.m4a");
};

TEST_F(KXMDFileProcessorConvertALACTest, CacheIsNamedByTheDigestOfTheSourcePath)
{
    EXPECT_EQ(processor().pathToCacheForFile(*proxy.file()), cachePath());
    EXPECT_NE(processor().pathToCacheForFile(*proxyOf("/Music/b.m4a").file()), cachePath());
}

TEST_F(KXMDFileProcessorConvertALACTest, CachePathMakesTheFolderForTheUserOnly)
{
    for (int i = 0; i < 2; ++i) { // A folder that is there is fine.
        EXPECT_EQ(processor().pathToCacheForFile(*proxy.file()), cachePath());
        ASSERT_TRUE(files::is_directory(temporaryFolder()));
    }
    EXPECT_EQ(files::status(temporaryFolder()).permissions(), files::perms::owner_all);
}

TEST_F(KXMDFileProcessorConvertALACTest, FolderThatCannotBeMadeStillHasAPath)
{
    fileManager->failToCreateFolders();
    EXPECT_EQ(processor().pathToCacheForFile(*proxy.file()), cachePath());
}

TEST_F(KXMDFileProcessorConvertALACTest, RunsTheConverterWithExactlyTheseArguments)
{
    taskRunner->setOutput(text("converted"));
    auto const data = processor().processedFileDataForFileProxy(proxy, nullptr);
    ASSERT_TRUE(data);
    EXPECT_EQ(textOf(*data), "converted");
    EXPECT_THAT(taskRunner->calls(),
        ElementsAre(FakeTaskRunner::Call { "/usr/bin/afconvert",
            { "-f", "m4af", "-d", "aac", "-b", "256000", "/Music/a.m4a", cachePath() } }));
}

TEST_F(KXMDFileProcessorConvertALACTest, SourcePathIsPassedAsItIs)
{
    for (std::string const path : { "-b", "a b", "$HOME", "http://x/y", "Music/\xFF" }) {
        static_cast<void>(processor().processedFileDataForFileProxy(proxyOf(path), nullptr));
        EXPECT_EQ(taskRunner->calls().back().arguments.at(6), path);
    }
}

TEST_F(KXMDFileProcessorConvertALACTest, BytesHandedInAreNotUsed)
{
    taskRunner->setOutput(text("converted"));
    auto const data = processor().processedFileDataForFileProxy(proxy, reader(text("given")));
    ASSERT_TRUE(data);
    EXPECT_EQ(textOf(*data), "converted");
}

TEST_F(KXMDFileProcessorConvertALACTest, FailureGivesNothingEvenWithAFile)
{
    taskRunner->setOutput(text("half"));
    for (std::optional<int> const status : { std::optional(1), std::optional(255), {} }) {
        taskRunner->setStatus(status);
        EXPECT_FALSE(processor().processedFileDataForFileProxy(proxy, nullptr));
        EXPECT_EQ(bytesOfFile(cachePath()), text("half")); // Left as it is.
    }
}

TEST_F(KXMDFileProcessorConvertALACTest, SuccessWithoutAFileGivesNothing)
{
    EXPECT_FALSE(processor().processedFileDataForFileProxy(proxy, nullptr));
}

TEST_F(KXMDFileProcessorConvertALACTest, CacheStaysAfterTheReader)
{
    taskRunner->setOutput(text("converted"));
    processor().processedFileDataForFileProxy(proxy, nullptr).reset();
    EXPECT_EQ(bytesOfFile(cachePath()), text("converted"));
}

TEST_F(KXMDFileProcessorConvertALACTest, EachRequestConvertsAnew)
{
    taskRunner->setOutput(text("first"));
    static_cast<void>(processor().processedFileDataForFileProxy(proxy, nullptr));
    taskRunner->setOutput(text("second"));
    auto const data = processor().processedFileDataForFileProxy(proxy, nullptr);
    ASSERT_TRUE(data);
    EXPECT_EQ(textOf(*data), "second");
    EXPECT_EQ(taskRunner->calls().size(), 2u);
}

TEST_F(KXMDFileProcessorConvertALACTest, WithoutASourcePathNothingIsDone)
{
    auto const nameless = proxyOf("");
    EXPECT_EQ(processor().pathToCacheForFile(*nameless.file()), "");
    EXPECT_FALSE(processor().processedFileDataForFileProxy(nameless, reader(text("given"))));
    EXPECT_EQ(processor().processedFilesizeForFileProxy(nameless, 4711), 4711u);
    EXPECT_THAT(taskRunner->calls(), IsEmpty());
    EXPECT_FALSE(files::exists(temporaryFolder()));
}

TEST_F(KXMDFileProcessorConvertALACTest, SizeIsTheOneHandedInUntilThereIsACache)
{
    EXPECT_EQ(processor().processedFilesizeForFileProxy(proxy, 4711), 4711u);
    taskRunner->setOutput(text("converted"));
    static_cast<void>(processor().processedFileDataForFileProxy(proxy, nullptr));
    EXPECT_EQ(processor().processedFilesizeForFileProxy(proxy, 4711), 9u);
    EXPECT_EQ(taskRunner->calls().size(), 1u); // It never converts.
}

TEST_F(KXMDFileProcessorConvertALACTest, SizeIsThatOfAStaleCacheToo)
{
    files::create_directories(temporaryFolder());
    folder.write("cache/tmp/" + files::path(cachePath()).filename().string(), text("of old"));
    EXPECT_EQ(processor().processedFilesizeForFileProxy(proxy, 4711), 6u);
}

TEST_F(KXMDFileProcessorConvertALACTest, EmptyCacheHasTheSizeZero)
{
    files::create_directories(temporaryFolder());
    folder.write("cache/tmp/" + files::path(cachePath()).filename().string(), {});
    EXPECT_EQ(processor().processedFilesizeForFileProxy(proxy, 4711), 0u);
}

TEST_F(KXMDFileProcessorConvertALACTest, ProxyWithoutAFileGivesNothing)
{
    KXDCSimpleFileProxy const nobody(nullptr, "/Phone/a.m4a");
    EXPECT_FALSE(processor().processedFileDataForFileProxy(nobody, nullptr));
    EXPECT_EQ(processor().processedFilesizeForFileProxy(nobody, 4711), 4711u);
}
