#include "kxmd/base/KXFolder.h"

#include "support/Files.h"

#include <gmock/gmock.h>

#include <filesystem>

using testing::IsEmpty;
using testing::UnorderedElementsAre;
namespace files = std::filesystem;

namespace {

class KXFolderTest : public testing::Test {
protected:
    std::string path(std::string const& name = "") const { return folder.path() / name; }

    TemporaryFolder const folder;
};

}

TEST_F(KXFolderTest, NamesAreThoseOfFilesFoldersAndLinks)
{
    folder.write("file", { 1 });
    folder.write(".hidden", {});
    folder.write("...", {});
    files::create_directories(path("folder/deep"));
    files::create_symlink("nowhere", path("link"));
    std::error_code error = std::make_error_code(std::errc::io_error);
    EXPECT_THAT(KXNamesInFolder(path(), error),
        UnorderedElementsAre("file", ".hidden", "...", "folder", "link"));
    EXPECT_FALSE(error);
    EXPECT_THAT(KXNamesInFolder(path("folder/deep"), error), IsEmpty());
    EXPECT_FALSE(error);
}

TEST_F(KXFolderTest, WhatIsNoFolderIsAnError)
{
    folder.write("file", { 1 });
    std::error_code error;
    EXPECT_THAT(KXNamesInFolder(path("missing"), error), IsEmpty());
    EXPECT_EQ(error, std::errc::no_such_file_or_directory);
    EXPECT_THAT(KXNamesInFolder(path("file"), error), IsEmpty());
    EXPECT_EQ(error, std::errc::not_a_directory);
}

TEST_F(KXFolderTest, RemovesAllThatIsInAFolder)
{
    std::string deep = "all";
    for (int i = 0; i < 40; ++i) // More than are held open.
        deep += "/folder";
    files::create_directories(path(deep));
    folder.write(deep + "/file", { 1 });
    folder.write("all/file", { 1 });
    EXPECT_TRUE(KXRemoveFolder(path("all")));
    EXPECT_FALSE(files::exists(path("all")));
}

TEST_F(KXFolderTest, LinksAreRemovedAndNotFollowed)
{
    files::create_directories(path("all"));
    files::create_directories(path("kept"));
    folder.write("kept/file", { 1 });
    files::create_directory_symlink("../kept", path("all/link"));
    EXPECT_TRUE(KXRemoveFolder(path("all")));
    EXPECT_TRUE(files::exists(path("kept/file")));
}

TEST_F(KXFolderTest, SaysWhatCouldNotBeRemoved)
{
    EXPECT_TRUE(KXRemoveFolder(path("missing"))); // Gone all the same.
    EXPECT_FALSE(KXRemoveFolder("/proc/self")); // Nobody may.
    EXPECT_FALSE(KXRemoveFolder("/proc/version/file")); // Not told to be gone: it is no path.
}
