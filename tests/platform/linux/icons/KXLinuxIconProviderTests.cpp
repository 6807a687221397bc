#include "kxmd/platform/linux/icons/KXLinuxIconProviderPrivate.h"

#include "kxmd/platform/KXPlatform.h"
#include "support/Files.h"
#include "support/Pictures.h"

#include <gmock/gmock.h>

#include <limits>
#include <thread>

using namespace pictures;
using testing::Contains;
using testing::Not;
namespace files = std::filesystem;

namespace {

class KXIconThemesTest : public testing::Test {
protected:
    /// Makes a theme in the base folder `base`.
    void theme(std::string const& base, std::string const& name, std::string const& index) const
    {
        files::create_directories(folder.path() / base / name);
        folder.write(base + "/" + name + "/index.theme", build::text(index));
    }

    /// Puts an icon of one colour somewhere below the base folders.
    void icon(std::string const& name, Colour colour = red, std::size_t size = 8) const
    {
        files::create_directories((folder.path() / name).parent_path());
        auto const data = loader->pngRepresentation(*solid(size, size, colour));
        folder.write(name, build::Bytes(data.bytes().begin(), data.bytes().end()));
    }

    KXIconThemes::Places places(std::vector<std::string> themes = { "mine" }) const
    {
        return { { (folder.path() / "user").string(), (folder.path() / "system").string() },
            std::move(themes) };
    }

    /// Where the icon lies, below the folder of this test.
    std::string found(std::vector<std::string> const& names, int size,
        std::vector<std::string> themes = { "mine" }) const
    {
        std::string const path = KXIconThemes(places(std::move(themes))).pathOfIcon(names, size);
        return path.empty() ? path : files::relative(path, folder.path()).string();
    }

    static std::string directories(std::string const& names)
    {
        return "[Icon Theme]\nDirectories=" + names + "\n";
    }
    static std::string directory(std::string const& name, std::string const& lines)
    {
        return "[" + name + "]\n" + lines + "\n";
    }

    TemporaryFolder const folder;
    std::shared_ptr<KXPictureLoader const> const loader
        = KXPlatform::platformOfThisMachine()->pictureLoader;
};

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
    icon("user/t299/16/b.png");
    EXPECT_EQ(found({ "b" }, 16, { "many" }), ""); // There is an end to it.
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

// Icons of types.

TEST_F(KXIconThemesTest, TypeHasTheIconOfItsName)
{
    theme("user", "mine", directories("16") + directory("16", "Size=16"));
    icon("user/mine/16/folder.png", blue, 32);
    icon("user/mine/16/text-x-generic.png", white, 32);
    icon("user/mine/16/audio-x-generic.png", green, 32);
    KXLinuxIconProvider const provider(places(), loader);
    auto const colourOf = [&provider](std::string_view type) {
        auto const image = provider.iconForFileType(std::string(type), { 16, 16 });
        return image ? pixel(*image, 5, 5) : transparent;
    };
    EXPECT_EQ(colourOf(KXIconProvider::folderType), blue);
    EXPECT_EQ(colourOf(KXIconProvider::documentType), white);
    EXPECT_EQ(colourOf("no such type"), white);
    EXPECT_EQ(colourOf("a/b"), white);
    EXPECT_EQ(colourOf(""), white);
    auto const names = KXLinuxIconProvider::iconNamesForFileType("mp3");
    if (names.front() == "text-x-generic")
        GTEST_SKIP() << "no database of types";
    for (char const* type : { "mp3", "MP3", "m3u", "flac" })
        EXPECT_EQ(colourOf(type), green) << type;
}

TEST_F(KXIconThemesTest, DrawingIsMadeInTheSize)
{
    theme("user", "mine",
        directories("any") + directory("any", "Size=16\nType=Scalable\nMinSize=8\nMaxSize=512"));
    files::create_directories(folder.path() / "user/mine/any");
    folder.write("user/mine/any/folder.svg",
        build::text("<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'>"
                    "<rect width='8' height='16' fill='red'/></svg>"));
    auto const image = KXLinuxIconProvider(places(), loader).iconForFileType("/fldr", { 200, 200 });
    ASSERT_TRUE(image);
    if (image->size() != KXSize { 200, 200 } || pixel(*image, 50, 100) != red)
        GTEST_SKIP() << "no loader for SVG";
    EXPECT_EQ(pixel(*image, 99, 100), red); // Sharp: drawn, not stretched.
    EXPECT_EQ(pixel(*image, 100, 100), transparent);
}

TEST_F(KXIconThemesTest, IconIsDrawnWhenThereIsNoThemeOrADamagedOne)
{
    auto const expected = KXLinuxIconProvider(places(), loader).iconForFileType("mp3", { 32, 32 });
    ASSERT_TRUE(expected);
    theme("user", "mine", directories("16") + directory("16", "Size=16"));
    files::create_directories(folder.path() / "user/mine/16");
    folder.write("user/mine/16/text-x-generic.png", build::text("no picture"));
    auto const icon = KXLinuxIconProvider(places(), loader).iconForFileType("/docu", { 32, 32 });
    ASSERT_TRUE(icon);
    EXPECT_TRUE(areEqual(*icon, *expected));
}

TEST_F(KXIconThemesTest, GlyphsAreNoIcons)
{
    for (std::string const type : { "mp3", "/fldr", "pdf" }) {
        for (auto const& name : KXLinuxIconProvider::iconNamesForFileType(type))
            EXPECT_THAT(name, Not(testing::EndsWith("-symbolic"))) << type;
    }
}

// This machine.

TEST(KXLinuxIconProviderOfThisMachine, HasIconsOfAThemeIfThereIsOne)
{
    auto const places = KXIconThemes::Places::ofThisMachine();
    std::string const path = KXIconThemes(places).pathOfIcon({ "folder" }, 48);
    if (path.empty())
        GTEST_SKIP() << "no theme";
    auto const loader = KXPlatform::platformOfThisMachine()->pictureLoader;
    auto const icon = KXLinuxIconProvider(places, loader).iconForFileType("/fldr", { 48, 48 });
    auto const drawn
        = KXLinuxIconProvider({ {}, { "none" } }, loader).iconForFileType("/fldr", { 48, 48 });
    ASSERT_TRUE(icon);
    EXPECT_FALSE(areEqual(*icon, *drawn));
}

TEST(KXLinuxIconProviderOfThisMachine, EveryTypeHasAnIconOfTheSize)
{
    auto const provider = KXPlatform::platformOfThisMachine()->iconProvider;
    for (std::string const type : { "mp3", "JPG", "no such type", "", "/fldr", "/docu" }) {
        for (KXSize const size : { KXSize { 16, 16 }, KXSize { 48, 32 }, KXSize { 1, 1 } }) {
            auto const icon = provider->iconForFileType(type, size);
            ASSERT_TRUE(icon) << type;
            EXPECT_LT(countOf(*icon, transparent), icon->pixelWidth() * icon->pixelHeight());
        }
    }
}

TEST(KXLinuxIconProviderOfThisMachine, FoldersLookUnlikeDocuments)
{
    auto const provider = KXPlatform::platformOfThisMachine()->iconProvider;
    auto const iconFor = [&provider](std::string_view type) {
        return provider->iconForFileType(std::string(type), { 32, 32 });
    };
    EXPECT_FALSE(
        areEqual(*iconFor(KXIconProvider::folderType), *iconFor(KXIconProvider::documentType)));
}

TEST(KXLinuxIconProviderOfThisMachine, SizeThatNoPictureHasGivesNothing)
{
    auto const provider = KXPlatform::platformOfThisMachine()->iconProvider;
    EXPECT_FALSE(provider->iconForFileType("mp3", { 0, 16 }));
    EXPECT_FALSE(provider->iconForFileType("mp3", { 16, -1 }));
    EXPECT_FALSE(
        provider->iconForFileType("mp3", { std::numeric_limits<double>::quiet_NaN(), 16 }));
}
