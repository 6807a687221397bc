#include "support/IconThemesTest.h"

#include <thread>

namespace files = std::filesystem;

namespace {

class KXIconThemesTest : public IconThemesTest { };

}

TEST_F(KXIconThemesTest, ChoosesTheDirectoryOfTheSize)
{
    theme("user", "mine",
        directories("16/m,32/m,any/m") + directory("16/m", "Size=16\nType=Fixed")
            + directory("32/m", "Size=32\nType=Threshold\nThreshold=3")
            + directory("any/m", "Size=64\nType=Scalable\nMinSize=40\nMaxSize=256"));
    for (char const* name : { "16/m", "32/m", "any/m" })
        icon(std::string("user/mine/") + name + "/a.png");
    for (auto const& [size, directoryName] :
        std::vector<std::pair<int, std::string>> { { 1, "16/m" }, { 16, "16/m" }, { 22, "16/m" },
            { 24, "32/m" }, { 29, "32/m" }, { 35, "32/m" }, { 37, "32/m" }, { 38, "any/m" },
            { 40, "any/m" }, { 256, "any/m" }, { 2'000, "any/m" } })
        EXPECT_EQ(found({ "a" }, size), "user/mine/" + directoryName + "/a.png") << size;
    EXPECT_EQ(found({ "b" }, 16), "");
}

TEST_F(KXIconThemesTest, IconThatIsMissingInTheRightSizeComesInTheNearest)
{
    theme("user", "mine",
        directories("16,32,48") + directory("16", "Size=16\nType=Fixed")
            + directory("32", "Size=32\nType=Fixed") + directory("48", "Size=48\nType=Fixed"));
    icon("user/mine/16/a.png");
    icon("user/mine/48/a.png");
    EXPECT_EQ(found({ "a" }, 31), "user/mine/16/a.png");
    EXPECT_EQ(found({ "a" }, 33), "user/mine/48/a.png");
}

TEST_F(KXIconThemesTest, NearestSizeMayComeInAnyOrder)
{
    theme("user", "mine",
        directories("16,64,24") + directory("16", "Size=16\nType=Fixed")
            + directory("64", "Size=64\nType=Fixed") + directory("24", "Size=24\nType=Fixed"));
    for (char const* name : { "16", "64", "24" })
        icon(std::string("user/mine/") + name + "/a.png");
    EXPECT_EQ(found({ "a" }, 31), "user/mine/24/a.png");
    EXPECT_EQ(found({ "a" }, 20), "user/mine/16/a.png"); // Of two that are as near, the first.
}

TEST_F(KXIconThemesTest, DirectoryServesTwoPixelsMoreOrLessUnlessItSaysOtherwise)
{
    theme("user", "mine",
        directories("16,all") + directory("16", "Size=16")
            + directory("all", "Size=64\nType=Scalable\nMinSize=1\nMaxSize=64"));
    icon("user/mine/16/a.png");
    icon("user/mine/all/a.png");
    for (int const size : { 14, 18 })
        EXPECT_EQ(found({ "a" }, size), "user/mine/16/a.png") << size;
    for (int const size : { 13, 19 })
        EXPECT_EQ(found({ "a" }, size), "user/mine/all/a.png") << size;
}

TEST_F(KXIconThemesTest, ScaleIsOneAtLeast)
{
    theme("user", "mine",
        directories("17,16") + directory("17", "Size=17\nType=Fixed")
            + directory("16", "Size=16\nScale=0\nType=Fixed"));
    icon("user/mine/16/a.png");
    icon("user/mine/17/a.png");
    EXPECT_EQ(found({ "a" }, 16), "user/mine/16/a.png");
}

TEST_F(KXIconThemesTest, FolderThatIsHiddenIsNoTheme)
{
    std::string const index = directories("16") + directory("16", "Size=16");
    for (std::string const name : { ".", ".hidden" }) {
        theme("user", name, index);
        icon("user/" + name + "/16/a.png");
    }
    for (std::string const name : { "", ".", ".hidden" })
        EXPECT_EQ(found({ "a" }, 16, { name }), "") << name;
}

TEST_F(KXIconThemesTest, IconsForDenseScreensAreALastChoice)
{
    theme("user", "mine",
        directories("16@2,32") + directory("16@2", "Size=16\nScale=2\nType=Fixed")
            + directory("32", "Size=32\nType=Fixed"));
    icon("user/mine/16@2/a.png");
    EXPECT_EQ(found({ "a" }, 32), "user/mine/16@2/a.png");
    icon("user/mine/32/a.png");
    EXPECT_EQ(found({ "a" }, 32), "user/mine/32/a.png");
}

TEST_F(KXIconThemesTest, ThemeMayBeSpreadOverFolders)
{
    theme("system", "mine", directories("16") + directory("16", "Size=16"));
    icon("system/mine/16/a.png");
    icon("system/mine/16/b.png");
    icon("user/mine/16/a.png");
    EXPECT_EQ(found({ "a" }, 16), "user/mine/16/a.png");
    EXPECT_EQ(found({ "b" }, 16), "system/mine/16/b.png");
}

TEST_F(KXIconThemesTest, ParentsAreAskedBeforeTheNextThemeAndHicolorLast)
{
    std::string const sizes = directories("16") + directory("16", "Size=16");
    auto const inheriting = [&sizes](std::string const& names) {
        return sizes + "[Icon Theme]\nInherits=" + names + "\n";
    };
    theme("user", "mine", inheriting("hicolor, parent"));
    theme("user", "parent", inheriting("grandparent"));
    theme("user", "grandparent", sizes);
    theme("user", "next", sizes);
    theme("system", "hicolor", sizes);
    std::vector<std::string> const themes { "mine", "next" };
    icon("system/pixmaps.png"); // Of no theme.
    EXPECT_EQ(found({ "pixmaps" }, 16, themes), "system/pixmaps.png");
    std::string expected;
    for (char const* place :
        { "system/hicolor", "user/next", "user/grandparent", "user/parent", "user/mine" }) {
        expected = std::string(place) + "/16/a.png";
        icon(expected);
        EXPECT_EQ(found({ "a" }, 16, themes), expected);
    }
    // A theme's general icon goes before another theme's particular one.
    icon("user/parent/16/particular.png");
    EXPECT_EQ(found({ "particular", "a" }, 16, themes), expected);
}

TEST_F(KXIconThemesTest, ThemesThatInheritEachOtherEnd)
{
    std::string const sizes = directories("16") + directory("16", "Size=16");
    theme("user", "mine", sizes + "[Icon Theme]\nInherits=mine,other\n");
    theme("user", "other", sizes + "[Icon Theme]\nInherits=mine,other,missing\n");
    icon("user/other/16/a.png");
    EXPECT_EQ(found({ "a" }, 16), "user/other/16/a.png");
    EXPECT_EQ(found({ "b" }, 16), "");
    std::string many = sizes + "[Icon Theme]\nInherits=";
    for (int i = 0; i < 300; ++i) {
        theme("user", "t" + std::to_string(i), sizes);
        many += "t" + std::to_string(i) + ",";
    }
    theme("user", "many", many + "\n");
    icon("user/t63/16/b.png");
    EXPECT_EQ(found({ "b" }, 16, { "many" }), ""); // There is an end to it,
    icon("user/t62/16/b.png");
    EXPECT_EQ(found({ "b" }, 16, { "many" }), "user/t62/16/b.png"); // at 64 themes.
}

TEST_F(KXIconThemesTest, DamagedIndexesAreNoHarm)
{
    for (std::string const index :
        { "", "[", "[Icon Theme", "[Icon Theme]\nDirectories", "[Other]\nDirectories=16\n",
            "[Icon Theme]\nDirectories=,, ,16\n", "[Icon Theme]\nDirectories=16\n[16]\nSize=x\n",
            "[Icon Theme]\nDirectories=16\n[16]\nSize=-99999999999999999999\n",
            "[Icon Theme]\nDirectories=../../system\n[../../system]\nSize=16\n", "\xFF\xFE\0" }) {
        theme("user", "mine", index);
        icon("user/mine/16/a.png");
        icon("system/a2.png");
        EXPECT_EQ(found({ "a" }, 16), "") << index;
    }
    theme("user", "mine",
        "[Icon "
        "Theme]\nDirectories=16,17\n[16]\nSize=99999999999999999999\nScale=99999999\nType=Fixed\n"
        "[17]\nSize=17\nType=Scalable\nMinSize=400\nMaxSize=3\n");
    EXPECT_EQ(found({ "a" }, 16), "user/mine/16/a.png");
    icon("user/mine/17/a.png");
    EXPECT_EQ(found({ "a" }, 16), "user/mine/17/a.png");
    for (char const* name : { "", ".", "..", "../user/mine", "no such theme" })
        EXPECT_EQ(found({ "a" }, 16, { name }), "") << name;
}

TEST_F(KXIconThemesTest, IndexWithoutItsGroupGivesWayToThatOfTheNextFolder)
{
    theme("user", "mine", "[Other]\nDirectories=16\n");
    theme("system", "mine", directories("16") + directory("16", "Size=16"));
    icon("system/mine/16/a.png");
    EXPECT_EQ(found({ "a" }, 16), "system/mine/16/a.png");
}

TEST_F(KXIconThemesTest, ThemeHasUpTo4096Directories)
{
    std::string names, groups;
    for (int i = 1; i <= 4097; ++i) {
        names += std::to_string(i) + ",";
        groups += directory(std::to_string(i), "Size=16");
    }
    theme("user", "mine", directories(names) + groups);
    icon("user/mine/4097/a.png");
    EXPECT_EQ(found({ "a" }, 16), "");
    icon("user/mine/4096/a.png");
    EXPECT_EQ(found({ "a" }, 16), "user/mine/4096/a.png");
}

TEST_F(KXIconThemesTest, IndexHasUpToOneMebibyte)
{
    std::string const start = directories("16") + directory("16", "Size=16") + "#";
    auto const ofLength
        = [&](std::size_t length) { return start + std::string(length - start.size(), 'x'); };
    icon("user/mine/16/a.png");
    theme("user", "mine", ofLength((1 << 20) + 1));
    EXPECT_EQ(found({ "a" }, 16), "");
    theme("user", "mine", ofLength(1 << 20));
    EXPECT_EQ(found({ "a" }, 16), "user/mine/16/a.png");
}

TEST_F(KXIconThemesTest, LargestSizeIs65536)
{
    theme("user", "mine",
        directories("65535,any") + directory("65535", "Size=65535\nType=Fixed")
            + directory("any", "Size=4000000000\nType=Fixed"));
    icon("user/mine/65535/a.png");
    icon("user/mine/any/a.png");
    EXPECT_EQ(found({ "a" }, 65'536), "user/mine/any/a.png");
}

TEST_F(KXIconThemesTest, IndexOrIconThatIsNoFileIsPassedOver)
{
    files::create_directories(folder.path() / "user/mine/index.theme");
    files::create_directories(folder.path() / "user/mine/16/a.png");
    EXPECT_EQ(found({ "a" }, 16), "");
    theme("system", "mine", directories("16") + directory("16", "Size=16"));
    EXPECT_EQ(found({ "a" }, 16), "");
    icon("system/mine/16/a.png");
    EXPECT_EQ(found({ "a" }, 16), "system/mine/16/a.png");
}

TEST_F(KXIconThemesTest, MayBeAskedOnSeveralThreads)
{
    theme("user", "mine", directories("16") + directory("16", "Size=16"));
    icon("user/mine/16/a.png");
    KXIconThemes const themes(places());
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&themes] { EXPECT_NE(themes.pathOfIcon({ "a" }, 16), ""); });
}
