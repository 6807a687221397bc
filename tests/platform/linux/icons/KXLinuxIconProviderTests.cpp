#include "kxmd/platform/linux/icons/KXLinuxIconProviderPrivate.h"

#include "support/IconThemesTest.h"

#include <gmock/gmock.h>

#include <limits>

using namespace pictures;
using testing::Contains;
using testing::Not;
namespace files = std::filesystem;

namespace {

// The colours of drawn icons.
constexpr Colour paper { 250, 250, 250, 255 };
constexpr Colour yellow { 240, 196, 92, 255 };
constexpr Colour grey { 150, 150, 150, 255 };

class KXLinuxIconProviderTest : public IconThemesTest { };

}

TEST_F(KXLinuxIconProviderTest, TypeHasTheIconOfItsName)
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

TEST_F(KXLinuxIconProviderTest, FolderGoesByItsContentTypeFirst)
{
    auto const names = KXLinuxIconProvider::iconNamesForFileType("/fldr");
    EXPECT_THAT(names, Contains("inode-directory"));
    EXPECT_EQ(names.back(), "folder");
}

TEST_F(KXLinuxIconProviderTest, DrawingIsMadeInTheSize)
{
    theme("user", "mine",
        directories("any") + directory("any", "Size=16\nType=Scalable\nMinSize=8\nMaxSize=512"));
    files::create_directories(folder.path() / "user/mine/any");
    auto const drawing
        = build::text("<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'>"
                      "<rect width='8' height='16' fill='red'/></svg>");
    folder.write("user/mine/any/folder.svg", drawing);
    auto const data = build::reader(drawing);
    if (!loader->imageInData(*data, data->length(), {}))
        GTEST_SKIP() << "no loader for SVG";
    auto const image = KXLinuxIconProvider(places(), loader).iconForFileType("/fldr", { 200, 200 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 200, 200 }));
    EXPECT_EQ(pixel(*image, 50, 100), red);
    EXPECT_EQ(pixel(*image, 99, 100), red); // Sharp: drawn, not stretched.
    EXPECT_EQ(pixel(*image, 100, 100), transparent);
}

TEST_F(KXLinuxIconProviderTest, IconIsDrawnWhenThereIsNoThemeOrADamagedOne)
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

TEST_F(KXLinuxIconProviderTest, IconIsLookedUpInUpTo1024Pixels)
{
    theme("user", "mine",
        directories("1023,1024,1025") + directory("1023", "Size=1023\nType=Fixed")
            + directory("1024", "Size=1024\nType=Fixed")
            + directory("1025", "Size=1025\nType=Fixed"));
    icon("user/mine/1023/folder.png", red);
    icon("user/mine/1024/folder.png", green);
    icon("user/mine/1025/folder.png", blue);
    KXLinuxIconProvider const provider(places(), loader);
    for (KXSize const size : { KXSize { 1e9, 1 }, { 1, 1e9 }, { 1025, 1025 }, { 1023.5, 9 } })
        EXPECT_EQ(pixel(*provider.iconForFileType("/fldr", size), 4, 4), green) << size.width;
    EXPECT_EQ(pixel(*provider.iconForFileType("/fldr", { 1023, 9 }), 4, 4), red);
}

TEST_F(KXLinuxIconProviderTest, DrawnSheetHasAnEdgeAThirtySecondWide)
{
    auto const icon = KXLinuxIconProvider(places(), loader).iconForFileType("mp3", { 320, 320 });
    ASSERT_TRUE(icon);
    for (std::size_t const inEdge : { 64, 73, 246, 255 })
        EXPECT_EQ(pixel(*icon, inEdge, 160), grey) << inEdge;
    for (std::size_t const inEdge : { 16, 25, 294, 303 })
        EXPECT_EQ(pixel(*icon, 160, inEdge), grey) << inEdge;
    EXPECT_EQ(countOf(*icon, paper), 172u * 268);
    EXPECT_EQ(countOf(*icon, grey), 192u * 288 - 172 * 268);
}

TEST_F(KXLinuxIconProviderTest, DrawnFolderHasATab)
{
    auto const icon = KXLinuxIconProvider(places(), loader).iconForFileType("/fldr", { 320, 320 });
    ASSERT_TRUE(icon);
    for (auto const& [x, y] : { std::pair(32u, 48u), { 159, 48 }, { 16, 80 }, { 303, 271 } })
        EXPECT_EQ(pixel(*icon, x, y), grey) << x << ", " << y;
    for (auto const& [x, y] : { std::pair(42u, 58u), { 149, 58 }, { 26, 90 }, { 293, 261 } })
        EXPECT_EQ(pixel(*icon, x, y), yellow) << x << ", " << y;
    constexpr std::size_t within = 108 * 22 + 268 * 172; // The tab ends at the edge below.
    EXPECT_EQ(countOf(*icon, yellow), within);
    EXPECT_EQ(countOf(*icon, grey), 128 * 32 + 288 * 192 - within);
}

TEST_F(KXLinuxIconProviderTest, SizeBeyondAnyRasterHasNoDrawnIcon)
{
    KXLinuxIconProvider const provider(places(), loader);
    for (double const length : { 1e9, std::numeric_limits<double>::infinity() }) {
        EXPECT_FALSE(provider.iconForFileType("mp3", { length, length })) << length;
        EXPECT_FALSE(provider.iconForFileType("/fldr", { length, length })) << length;
    }
}

TEST_F(KXLinuxIconProviderTest, GlyphsAreNoIcons)
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
    auto const loader = rendersOfThisMachine();
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
