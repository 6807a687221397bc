#include "kxmd/host/KXPath.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(KXPath, ComponentsLeaveOutEmptyOnesAndDots)
{
    EXPECT_THAT(pathComponents("/a//b/./c/"), ElementsAre("a", "b", "c"));
    EXPECT_THAT(pathComponents("a/../b"), ElementsAre("a", "..", "b"));
    EXPECT_THAT(pathComponents("/"), IsEmpty());
    EXPECT_THAT(pathComponents(""), IsEmpty());
    EXPECT_THAT(pathComponents("..."), ElementsAre("..."));
}

TEST(KXPath, LastComponentIgnoresTrailingSlashes)
{
    EXPECT_EQ(lastPathComponent("/a/b.mp3"), "b.mp3");
    EXPECT_EQ(lastPathComponent("/a/b//"), "b");
    EXPECT_EQ(lastPathComponent("b"), "b");
    EXPECT_EQ(lastPathComponent("/"), "");
    EXPECT_EQ(lastPathComponent(""), "");
}

TEST(KXPath, DeletingTheLastComponentLeavesTheFolder)
{
    EXPECT_EQ(pathByDeletingLastPathComponent("/a/b.mp3"), "/a");
    EXPECT_EQ(pathByDeletingLastPathComponent("/a//b/"), "/a");
    EXPECT_EQ(pathByDeletingLastPathComponent("/a"), "/");
    EXPECT_EQ(pathByDeletingLastPathComponent("/"), "/");
    EXPECT_EQ(pathByDeletingLastPathComponent("//"), "/");
    EXPECT_EQ(pathByDeletingLastPathComponent("a/b"), "a");
    EXPECT_EQ(pathByDeletingLastPathComponent("a"), "");
    EXPECT_EQ(pathByDeletingLastPathComponent(""), "");
}

namespace {

struct Relation {
    std::string_view path, rootFolder, relative;
};

void expectRelations(std::initializer_list<Relation> relations)
{
    for (auto const& [path, rootFolder, relative] : relations)
        EXPECT_EQ(relativePathForRootFolder(path, rootFolder), relative)
            << path << " in " << rootFolder;
}

}

// None of these folders exists: only the texts count.

TEST(KXPath, RelativePathIsThePartBelowTheFolder)
{
    expectRelations({
        { "/Music/a.mp3", "/Music", "a.mp3" },
        { "/Music/Album/a.mp3", "/Music", "Album/a.mp3" },
        { "/Music/a.mp3", "/", "Music/a.mp3" },
        { "Music/a.mp3", "Music", "a.mp3" },
        { "Music/a.mp3", "", "Music/a.mp3" },
    });
}

TEST(KXPath, RelativePathIsEmptyForTheFolderItself)
{
    expectRelations({
        { "/Music", "/Music", "" },
        { "/Music/", "/Music", "" },
        { "/Music/./", "/Music//", "" },
        { "/", "/", "" },
        { "", "", "" },
    });
}

TEST(KXPath, RelativePathIsEmptyOutsideOfTheFolder)
{
    expectRelations({
        { "/Video/a.mp3", "/Music", "" },
        { "/", "/Music", "" },
        { "/Music", "/Music/Album", "" },
        { "/music/a.mp3", "/Music", "" },
        { "", "/Music", "" },
    });
}

TEST(KXPath, RelativePathComparesWholeComponents)
{
    expectRelations({
        { "/Music2/a.mp3", "/Music", "" },
        { "/Music/a.mp3", "/Mus", "" },
        { "/Music/Album2/a.mp3", "/Music/Album", "" },
    });
}

TEST(KXPath, RelativePathDoesNotMindSlashesAndDots)
{
    expectRelations({
        { "/Music//Album/./a.mp3", "/Music///", "Album/a.mp3" },
        { "//Music/a.mp3/", "/./Music/", "a.mp3" },
    });
}

TEST(KXPath, RelativePathResolvesDoubleDotsInTheText)
{
    expectRelations({
        { "/Music/Album/../a.mp3", "/Music", "a.mp3" },
        { "/Music/../Video/a.mp3", "/Music", "" },
        { "/Music/a.mp3", "/Music/Album/..", "a.mp3" },
        { "/../Music/a.mp3", "/Music", "a.mp3" }, // Above the root is the root.
        { "/Music/..", "/Music", "" },
        { "../a.mp3", "..", "a.mp3" },
        { "../../a.mp3", "..", "" },
        { "Music/../../a.mp3", "", "" },
        { "a/../../b/c.mp3", "../b", "c.mp3" },
    });
}

TEST(KXPath, RelativePathNeedsBothAbsoluteOrBothRelative)
{
    expectRelations({
        { "Music/a.mp3", "/Music", "" },
        { "/Music/a.mp3", "Music", "" },
        { "/Music/a.mp3", "", "" },
    });
}
