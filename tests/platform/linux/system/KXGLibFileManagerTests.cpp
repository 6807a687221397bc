#include "kxmd/platform/KXPlatform.h"

#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/OpenFiles.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace build;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using testing::StartsWith;
using testing::UnorderedElementsAre;
namespace files = std::filesystem;

namespace {

class KXGLibFileManagerTest : public testing::Test {
protected:
    std::string path(std::string const& name) const { return folder.path() / name; }

    /// The names of everything in the folder.
    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (auto const& entry : files::directory_iterator(folder.path()))
            found.push_back(entry.path().filename());
        return found;
    }

    TemporaryFolder const folder;
    std::shared_ptr<KXFileManager const> const manager
        = KXPlatform::platformOfThisMachine()->fileManager;
};

}

TEST_F(KXGLibFileManagerTest, ReadsWholeFiles)
{
    for (std::size_t const length : { 0u, 1u, 262'144u, 262'145u, 3'000'000u }) {
        Bytes bytes(length);
        for (std::size_t i = 0; i < length; ++i)
            bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
        auto const data = manager->mutableDataWithContentsOfFile(folder.write("file", bytes));
        ASSERT_TRUE(data);
        EXPECT_TRUE(std::ranges::equal(data->bytes(), bytes)) << length;
    }
}

TEST_F(KXGLibFileManagerTest, WhatIsNoRegularFileGivesNothing)
{
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    files::create_symlink("missing", path("dangling"));
    for (std::string const& name : { path("missing"), path("fifo"), path("dangling"),
             folder.path().string(), std::string("/dev/zero"), std::string() })
        EXPECT_FALSE(manager->mutableDataWithContentsOfFile(name)) << name;
}

TEST_F(KXGLibFileManagerTest, FileLongerThanMemoryGivesNothing)
{
    auto const sparse = folder.write("sparse", {});
    std::error_code error;
    for (int power = 62; power >= 42; --power) { // Each file system has a longest file of its own.
        files::resize_file(sparse, std::uint64_t { 1 } << power, error);
        if (!error)
            break;
    }
    if (error)
        GTEST_SKIP() << "no file here can be longer than memory: " << error.message();
    LogCapture const log;
    EXPECT_FALSE(manager->mutableDataWithContentsOfFile(sparse));
    EXPECT_THAT(log.lines(),
        ElementsAre("Metadata: KXFileManager->no memory for a file of "
            + std::to_string(files::file_size(sparse)) + " bytes"));
}

TEST_F(KXGLibFileManagerTest, FileThatIsShorterThanItSaysGivesNothing)
{
    std::string const shorter = "/sys/kernel/mm/transparent_hugepage/enabled"; // A line in a page.
    if (!files::exists(shorter))
        GTEST_SKIP() << "no such file";
    EXPECT_FALSE(manager->mutableDataWithContentsOfFile(shorter));
}

TEST_F(KXGLibFileManagerTest, BufferStaysInItsPlaceForACoverOfAMebibyte)
{
    std::string const file = folder.write("file", filled(3'000'000, 'x'));
    for (std::size_t const length : { 1u << 20, (1u << 20) + 1 }) {
        auto const data = manager->mutableDataWithContentsOfFile(file);
        ASSERT_TRUE(data);
        auto const* const before = data->bytes().data();
        ASSERT_TRUE(data->insertBytesAt(zeros(length), 10));
        EXPECT_EQ(data->bytes().data() == before, length == 1u << 20) << length;
    }
}

TEST_F(KXGLibFileManagerTest, WritesAndReplaces)
{
    for (Bytes const& bytes : { text("first"), Bytes(), filled(1'000'000, 'x'), text("last") }) {
        EXPECT_TRUE(manager->writeBytesToFile(bytes, path("file")));
        EXPECT_EQ(bytesOfFile(path("file")), bytes);
    }
    EXPECT_EQ(names(), std::vector<std::string> { "file" });
}

TEST_F(KXGLibFileManagerTest, WritesUnderTheLongestName)
{
    for (std::size_t const length : { 247u, 248u, 249u, 255u }) {
        std::string const name(length, 'n');
        for (Bytes const& bytes : { text("first"), text("second") }) {
            EXPECT_TRUE(manager->writeBytesToFile(bytes, path(name))) << length;
            EXPECT_EQ(bytesOfFile(path(name)), bytes);
        }
    }
    EXPECT_EQ(names().size(), 4u);
    EXPECT_FALSE(manager->writeBytesToFile(text("a"), path(std::string(256, 'n'))));
    EXPECT_FALSE(manager->writeBytesToFile(text("a"), path("missing/" + std::string(255, 'n'))));
    EXPECT_EQ(names().size(), 4u);
}

TEST_F(KXGLibFileManagerTest, LongNameIsWrittenBesideItself)
{
    std::string const name(255, 'n');
    auto const before = files::current_path();
    auto const opened = countOfOpenFiles();
    files::create_directory(path("gone"));
    files::current_path(path("gone"));
    files::remove(path("gone"));
    EXPECT_TRUE(manager->writeBytesToFile(text("a"), path(name)));
    files::current_path(folder.path());
    EXPECT_TRUE(manager->writeBytesToFile(text("b"), name));
    files::current_path(before);
    EXPECT_EQ(bytesOfFile(path(name)), text("b"));
    EXPECT_EQ(countOfOpenFiles(), opened);
}

TEST_F(KXGLibFileManagerTest, HostMayHaveClosedItsStandardInput)
{
    pid_t const host = ::fork();
    if (host == 0) {
        ::close(STDIN_FILENO);
        ::_exit(manager->writeBytesToFile(text("a"), path(std::string(255, 'n'))) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(host, &status, 0), host);
    EXPECT_EQ(status, 0);
}

TEST_F(KXGLibFileManagerTest, NewFileIsForTheUserOnly)
{
    ASSERT_TRUE(manager->writeBytesToFile(text("a"), path("file")));
    EXPECT_EQ(files::status(path("file")).permissions(),
        files::perms::owner_read | files::perms::owner_write);
}

TEST_F(KXGLibFileManagerTest, FailedWriteLeavesWhatWasThere)
{
    files::create_directory(path("folder"));
    {
        LogCapture const log;
        EXPECT_FALSE(manager->writeBytesToFile(text("a"), path("missing/file")));
        EXPECT_FALSE(manager->writeBytesToFile(text("a"), path("folder")));
        EXPECT_THAT(log.lines(),
            ElementsAre(AllOf(StartsWith("Metadata: KXFileManager->"), HasSubstr("missing/file")),
                AllOf(StartsWith("Metadata: KXFileManager->"), HasSubstr("folder"))));
    }

    folder.write("file", text("as it was"));
    rlimit before;
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit const full { 1000, before.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
    bool const isWritten = manager->writeBytesToFile(filled(100'000, 'x'), path("file"));
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_FALSE(isWritten);
    EXPECT_EQ(bytesOfFile(path("file")), text("as it was"));
    EXPECT_EQ(names().size(), 2u);
}

TEST_F(KXGLibFileManagerTest, MakesFoldersWithTheirParents)
{
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(manager->createFolderAtPath(path("a/b/c")));
    for (std::string const name : { "a", "a/b", "a/b/c" })
        EXPECT_EQ(files::status(path(name)).permissions(), files::perms::owner_all);
    folder.write("file", {});
    EXPECT_FALSE(manager->createFolderAtPath(path("file")));
    EXPECT_FALSE(manager->createFolderAtPath(path("file/below")));
}

TEST_F(KXGLibFileManagerTest, RemovesFoldersThatAreEmpty)
{
    files::create_directories(path("a/b"));
    manager->removeEmptyFolderAtPath(path("a"));
    EXPECT_TRUE(files::exists(path("a/b")));
    manager->removeEmptyFolderAtPath(path("a/b"));
    manager->removeEmptyFolderAtPath(path("a"));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(KXGLibFileManagerTest, PathWithZeroIsNotTakenForWhatPrecedesIt)
{
    std::string const whole = folder.write("file", bytes({ 1, 2, 3 }));
    std::string const cutShort = whole + std::string("\0.mp3", 5);
    EXPECT_FALSE(manager->mutableDataWithContentsOfFile(cutShort));
    EXPECT_FALSE(manager->writeBytesToFile(bytes({ 4 }), cutShort));
    EXPECT_FALSE(manager->sizeOfFileAtPath(cutShort));
    std::string const empty = path("empty");
    ASSERT_TRUE(manager->createFolderAtPath(empty));
    manager->removeEmptyFolderAtPath(empty + std::string("\0", 1));
    EXPECT_FALSE(manager->createFolderAtPath(path("new") + std::string("\0/deep", 6)));
    EXPECT_THAT(names(), UnorderedElementsAre("file", "empty"));
    EXPECT_EQ(bytesOfFile(whole), bytes({ 1, 2, 3 }));
}

TEST_F(KXGLibFileManagerTest, KnowsSizes)
{
    EXPECT_THAT(manager->sizeOfFileAtPath(folder.write("file", zeros(4711))), Optional(4711u));
    EXPECT_THAT(manager->sizeOfFileAtPath(folder.write("empty", {})), Optional(0u));
    EXPECT_EQ(manager->sizeOfFileAtPath(path("missing")), std::nullopt);
    EXPECT_EQ(manager->sizeOfFileAtPath(""), std::nullopt);
}
