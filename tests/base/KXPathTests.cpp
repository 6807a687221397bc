#include "kxmd/base/KXPath.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(KXPath, ComponentsLeaveOutEmptyOnesAndDots)
{
    EXPECT_THAT(KXPathComponents("/a//b/./c/"), ElementsAre("a", "b", "c"));
    EXPECT_THAT(KXPathComponents("a/../b"), ElementsAre("a", "..", "b"));
    EXPECT_THAT(KXPathComponents("/"), IsEmpty());
    EXPECT_THAT(KXPathComponents(""), IsEmpty());
    EXPECT_THAT(KXPathComponents("..."), ElementsAre("..."));
}

TEST(KXPath, LastComponentIgnoresTrailingSlashes)
{
    EXPECT_EQ(KXLastPathComponent("/a/b.mp3"), "b.mp3");
    EXPECT_EQ(KXLastPathComponent("/a/b//"), "b");
    EXPECT_EQ(KXLastPathComponent("b"), "b");
    EXPECT_EQ(KXLastPathComponent("/"), "");
    EXPECT_EQ(KXLastPathComponent(""), "");
}

TEST(KXPath, DeletingTheLastComponentLeavesTheFolder)
{
    EXPECT_EQ(KXPathByDeletingLastPathComponent("/a/b.mp3"), "/a");
    EXPECT_EQ(KXPathByDeletingLastPathComponent("/a//b/"), "/a");
    EXPECT_EQ(KXPathByDeletingLastPathComponent("/a"), "/");
    EXPECT_EQ(KXPathByDeletingLastPathComponent("/"), "/");
    EXPECT_EQ(KXPathByDeletingLastPathComponent("//"), "/");
    EXPECT_EQ(KXPathByDeletingLastPathComponent("a/b"), "a");
    EXPECT_EQ(KXPathByDeletingLastPathComponent("a"), "");
    EXPECT_EQ(KXPathByDeletingLastPathComponent(""), "");
}

namespace {

struct Relation {
    std::string_view path, rootFolder, relative;
};

void expectRelations(std::initializer_list<Relation> relations)
{
    for (auto const& [path, rootFolder, relative] : relations)
        EXPECT_EQ(KXRelativePathForRootFolder(path, rootFolder), relative)
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

TEST(KXPath, ExtensionFollowsTheLastFullStopOfTheLastComponent)
{
    EXPECT_EQ(KXPathExtension("/a/b.mp3"), "mp3");
    EXPECT_EQ(KXPathExtension("b.tar.gz"), "gz");
    EXPECT_EQ(KXPathExtension("/a.b/c"), "");
    EXPECT_EQ(KXPathExtension("/a.b/c.d/"), "d");
    EXPECT_EQ(KXPathExtension("a."), "");
    EXPECT_EQ(KXPathExtension(".hidden"), "hidden");
    EXPECT_EQ(KXPathExtension(""), "");
}
