// Temporary folders, and what becomes of those that nobody needs any more.

#include "kxmd/platform/linux/system/KXGLibTemporaryFoldersPrivate.h"

#include "support/Files.h"
#include "support/OpenFiles.h"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sys/stat.h>

using namespace build;
namespace files = std::filesystem;

namespace {

void makeOld(files::path const& path)
{
    files::last_write_time(path, files::file_time_type::clock::now() - std::chrono::hours(49));
}

/// Does what every process does first: takes away what was forgotten.
void sweep() { static_cast<void>(KXGLibTemporaryFolders().applicationTempFolder()); }

}

TEST(KXGLibTemporaryFolders, UniqueFoldersAreOnlyForTheUser)
{
    KXGLibTemporaryFolders const folders;
    files::path const first = folders.applicationUniqueTempFolderWithPrefix("test");
    files::path const second = folders.applicationUniqueTempFolderWithPrefix("test");
    EXPECT_NE(first, second);
    for (auto const& path : { first, second }) {
        EXPECT_EQ(path.parent_path(), folders.applicationTempFolder());
        EXPECT_THAT(path.filename().string(), testing::StartsWith("test-"));
        EXPECT_EQ(files::status(path).permissions(), files::perms::owner_all);
        files::remove(path);
    }
}

TEST(KXGLibTemporaryFolders, FolderIsKeptAsLongAsItsProcessLives)
{
    std::optional<KXGLibTemporaryFolders> process(std::in_place);
    files::path const folder = process->applicationUniqueTempFolderWithPrefix("test");
    std::ofstream(folder / "file") << "x";
    makeOld(folder);
    sweep();
    EXPECT_TRUE(files::exists(folder / "file"));
    process.reset();
    sweep();
    EXPECT_FALSE(files::exists(folder));
}

TEST(KXGLibTemporaryFolders, WhatIsForgottenIsRemovedOnceItIsOld)
{
    files::path const parent = KXGLibTemporaryFolders().applicationTempFolder();
    files::create_directories(parent / "test-young");
    files::create_directories(parent / "test-old/within");
    std::ofstream(parent / "test-young-file") << "x";
    std::ofstream(parent / "test-old-file") << "x";
    TemporaryFolder const elsewhere;
    std::string const precious = elsewhere.write("precious", text("x"));
    files::create_directory_symlink(elsewhere.path(), parent / "test-link");
    for (char const* const name : { "test-old", "test-old-file" })
        makeOld(parent / name);
    makeOld(elsewhere.path());
    sweep();
    EXPECT_TRUE(files::exists(parent / "test-young"));
    EXPECT_TRUE(files::exists(parent / "test-young-file"));
    EXPECT_FALSE(files::exists(parent / "test-old"));
    EXPECT_FALSE(files::exists(parent / "test-old-file"));
    EXPECT_TRUE(files::exists(precious)); // Only the link goes.
    for (char const* const name : { "test-young", "test-young-file", "test-link" })
        files::remove(parent / name);
}

TEST(KXGLibTemporaryFolders, ManyFoldersHoldFewDescriptors)
{
    KXGLibTemporaryFolders const folders;
    std::vector<std::string> paths;
    auto const before = countOfOpenFiles();
    for (int i = 0; i < 70; ++i)
        paths.push_back(folders.applicationUniqueTempFolderWithPrefix("test"));
    EXPECT_EQ(countOfOpenFiles(), before + 64);
    for (std::string const& path : paths)
        files::remove(path);
    files::remove(folders.applicationUniqueTempFolderWithPrefix("test"));
    EXPECT_EQ(countOfOpenFiles(), before + 1);
}
