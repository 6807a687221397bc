#include "support/ThumbnailTest.h"

#include <latch>
#include <stdexcept>

using namespace pictures;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr KXSize size200 { 200, 200 };

/// Counts what it is asked for its metadata and its path.
class CountingFile final : public KXDCFile {
public:
    std::string sourcePath() const override { return ++asked, "/counting"; }
    KXDCValue metadataForKey(std::string_view) const override { return ++asked, KXDCValue(); }
    void setMetadataForKey(KXDCValue, std::string_view) override { }
    void setName(std::string) override { }
    int fileKind() const override { return 0; }
    bool hasDRM() const override { return false; }
    bool isFolder() const override { return false; }
    std::string filename() const override { return "counting"; }

    mutable int asked { 0 };
};

/// Holds whoever asks for a picture until it is opened.
class Gate final : public KXThumbnailService {
public:
    KXImage::Ref imageForPath(std::string const&, KXSize) const override
    {
        isOpen.wait();
        return nullptr;
    }

    mutable std::latch isOpen { 1 };
};

class KXMDComposite : public ThumbnailTest {
protected:
    using Files = KXMDThumbnailController::Files;

    /// Four files of one colour each.
    Files fourColours()
    {
        return { coloured("/0", red), coloured("/1", green), coloured("/2", blue),
            coloured("/3", white) };
    }

    std::string nameOf(std::string const& path, KXSize size = size200) const
    {
        return controller->cacheNameForPath(path, size);
    }
};

}

TEST_F(KXMDComposite, TracksOfOneAlbumShowTheFirstOneWhole)
{
    Files files;
    for (char const* path : { "/1.mp3", "/2.mp3", "/3.mp3", "/4.mp3", "/5.mp3" })
        files.push_back(track(path, "A", "B"));
    coloured("/1.mp3", green);
    coloured("/2.mp3", red);
    std::string const album = nameOf("A_B");
    EXPECT_EQ(controller->cacheNameForCompositeFiles(files, size200), album);

    auto const composite = controller->compositeThumbnailForFiles(files, size200);
    ASSERT_TRUE(composite);
    EXPECT_EQ(composite->size(), size200);
    EXPECT_EQ(countOf(*composite, green), 200u * 200);
    EXPECT_EQ(controller->imageForCacheName(album), composite);
    EXPECT_EQ(controller->thumbnailForPath("/1.mp3", size200), composite);
    EXPECT_THAT(rendered(), ElementsAre("/1.mp3"));
}

TEST_F(KXMDComposite, FewerThanFourPicturesShowTheFirstOneWhole)
{
    Files files { coloured("/0", red), coloured("/1", green), coloured("/2", blue) };
    for (; !files.empty(); files.pop_back()) {
        controller = KXMDThumbnailController::createWithPlatform(machine.platform());
        EXPECT_EQ(controller->cacheNameForCompositeFiles(files, size200), nameOf("/0"));
        auto const composite = controller->compositeThumbnailForFiles(files, size200);
        ASSERT_TRUE(composite);
        EXPECT_EQ(countOf(*composite, red), 200u * 200) << files.size();
        EXPECT_FALSE(controller->thumbnailExistsForPath("/1", size200));
    }
}

TEST_F(KXMDComposite, OnlyTheFirstFourOfSixAlbumsAreChosen)
{
    Files files;
    for (char const* album : { "1", "2", "3", "4" })
        files.push_back(track("/x", "A", album));
    auto const fifth = std::make_shared<CountingFile>();
    files.push_back(fifth);
    files.push_back(fileAt("")); // Without a cache name, which would throw.
    EXPECT_EQ(controller->cacheNameForCompositeFiles(files, size200),
        nameOf("A_1") + '-' + nameOf("A_2") + '-' + nameOf("A_3") + '-' + nameOf("A_4"));
    EXPECT_TRUE(controller->compositeThumbnailForFiles(files, size200));
    EXPECT_EQ(fifth->asked, 0);
}

TEST_F(KXMDComposite, FilesOfOneNameCountOnceAndTheFirstIsChosen)
{
    coloured("/a1", red);
    coloured("/a2", white);
    coloured("/b1", green);
    Files files { track("/a1", "A", "A"), track("/a2", "A", "A"), track("/b1", "A", "B"),
        track("/a2", "A", "A"), coloured("/c", blue) };
    EXPECT_EQ(controller->cacheNameForCompositeFiles(files, size200), nameOf("A_A"));
    files.push_back(coloured("/d", red));
    EXPECT_EQ(controller->cacheNameForCompositeFiles(files, size200),
        nameOf("A_A") + '-' + nameOf("A_B") + '-' + nameOf("/c") + '-' + nameOf("/d"));
    EXPECT_TRUE(controller->compositeThumbnailForFiles(files, size200));
    EXPECT_THAT(rendered(), ElementsAre("/a1", "/b1", "/c", "/d"));
}

TEST_F(KXMDComposite, NameHasTheOrderOfTheFilesAndTheSize)
{
    auto files = fourColours();
    auto const name = controller->cacheNameForCompositeFiles(files, size200);
    EXPECT_EQ(name.size(), 4u * 40 + 3);
    EXPECT_NE(controller->cacheNameForCompositeFiles(files, { 100, 100 }), name);
    std::swap(files[0], files[3]);
    EXPECT_NE(controller->cacheNameForCompositeFiles(files, size200), name);
}

TEST_F(KXMDComposite, TilesBeginAtTheBottomLeft)
{
    auto const composite = controller->compositeThumbnailForFiles(fourColours(), size200);
    ASSERT_TRUE(composite);
    EXPECT_EQ(composite->size(), size200);
    // Rows of pixels run from the top: the third and the fourth file come first.
    for (std::size_t y = 0; y < 200; ++y) {
        for (std::size_t x = 0; x < 200; ++x) {
            Colour const expected = y < 100 ? (x < 100 ? blue : white) : (x < 100 ? red : green);
            ASSERT_EQ(pixel(*composite, x, y), expected) << x << ' ' << y;
        }
    }
}

TEST_F(KXMDComposite, TilesAreUprightAndMadeAtTheFullSize)
{
    auto files = fourColours();
    machine.thumbnailService->setImageForPath(quarters(80, 80), "/1");
    KXSize const size { 200, 100 };
    auto const composite = controller->compositeThumbnailForFiles(files, size);
    ASSERT_TRUE(composite);
    EXPECT_EQ(composite->size(), size);
    for (auto const& call : machine.thumbnailService->calls())
        EXPECT_EQ(call.maximumSize, (KXSize { 400, 200 }));
    for (char const* path : { "/0", "/1", "/2", "/3" })
        EXPECT_TRUE(controller->thumbnailExistsForPath(path, size)) << path;

    // The second tile: the right half of the lower half.
    EXPECT_EQ(pixel(*composite, 105, 55), red);
    EXPECT_EQ(pixel(*composite, 195, 55), green);
    EXPECT_EQ(pixel(*composite, 105, 95), blue);
    EXPECT_EQ(pixel(*composite, 195, 95), white);
    EXPECT_EQ(pixel(*composite, 99, 50), red); // The first tile, up to its corner.
    EXPECT_EQ(pixel(*composite, 99, 49), blue); // The third.
    EXPECT_EQ(pixel(*composite, 100, 49), white); // The fourth.
}

TEST_F(KXMDComposite, MissingTileLeavesItsQuarterTransparent)
{
    auto files = fourColours();
    machine.thumbnailService->setImageForPath(nullptr, "/2");
    auto const composite = controller->compositeThumbnailForFiles(files, size200);
    ASSERT_TRUE(composite);
    EXPECT_EQ(countOf(*composite, transparent), 100u * 100);
    EXPECT_EQ(pixel(*composite, 0, 0), transparent);
    EXPECT_EQ(pixel(*composite, 99, 99), transparent);
    for (Colour const colour : { red, green, white })
        EXPECT_EQ(countOf(*composite, colour), 100u * 100);

    // Cached as it is; a tile that comes later is not drawn in.
    machine.thumbnailService->setImageForPath(solid(9, 9, blue), "/2");
    EXPECT_EQ(controller->compositeThumbnailForFiles(files, size200), composite);
    EXPECT_EQ(controller->imageForCacheName(controller->cacheNameForCompositeFiles(files, size200)),
        composite);
    EXPECT_EQ(rendered().size(), 4u);
}

TEST_F(KXMDComposite, WithoutAnyTileIsTransparentAndCached)
{
    Files const files { fileAt("/0"), fileAt("/1"), fileAt("/2"), fileAt("/3") };
    auto const composite = controller->compositeThumbnailForFiles(files, size200);
    ASSERT_TRUE(composite);
    EXPECT_EQ(countOf(*composite, transparent), 200u * 200);
    EXPECT_EQ(controller->compositeThumbnailForFiles(files, size200), composite);
}

TEST_F(KXMDComposite, OfOnePictureThatCannotBeMadeIsNothing)
{
    Files const files { fileAt("/0"), coloured("/1", green) };
    EXPECT_FALSE(controller->compositeThumbnailForFiles(files, size200));
    EXPECT_FALSE(controller->imageForCacheName(nameOf("/0")));
    EXPECT_THAT(rendered(), ElementsAre("/0"));
}

TEST_F(KXMDComposite, SizesThatAreOddOrHaveFractionsAreHalvedExactly)
{
    KXSize const size { 100.5, 61 };
    auto const composite = controller->compositeThumbnailForFiles(fourColours(), size);
    ASSERT_TRUE(composite);
    EXPECT_EQ(composite->size(), size);
    EXPECT_EQ(composite->pixelWidth(), 101u);
    EXPECT_EQ(pixel(*composite, 49, 60), red);
    EXPECT_EQ(pixel(*composite, 51, 60), green);
    EXPECT_EQ(pixel(*composite, 49, 0), blue);
    EXPECT_EQ(pixel(*composite, 51, 0), white);
    // Column 50 is covered in part by the left tiles and in part by the right ones.
    auto const seam = pixel(*composite, 50, 60);
    EXPECT_NEAR(seam[0], 0.25 * 255 * 0.25, 1.01);
    EXPECT_NEAR(seam[1], 0.75 * 255, 1.01);
}

// Lists that have no composite.

TEST_F(KXMDComposite, OfAnEmptyListHasNoNameAndThrows)
{
    EXPECT_EQ(controller->cacheNameForCompositeFiles({}, size200), "");
    EXPECT_THROW((void)controller->compositeThumbnailForFiles({}, size200), std::out_of_range);
    Received received;
    EXPECT_FALSE(controller->compositeThumbnailForFiles({}, size200, into(received)));
    finish();
    EXPECT_THAT(received, IsEmpty());
}

TEST_F(KXMDComposite, WithAFileWithoutANameThrows)
{
    for (Files const& files : { Files { fileAt("") }, Files { coloured("/0", red), fileAt("") },
             Files { coloured("/0", red), track("", "A", ""), coloured("/1", red) } }) {
        Received received;
        EXPECT_THROW(
            (void)controller->cacheNameForCompositeFiles(files, size200), std::invalid_argument);
        EXPECT_THROW(
            (void)controller->compositeThumbnailForFiles(files, size200), std::invalid_argument);
        EXPECT_THROW((void)controller->compositeThumbnailForFiles(files, size200, into(received)),
            std::invalid_argument);
        finish();
        EXPECT_THAT(received, IsEmpty());
    }
    EXPECT_THAT(rendered(), IsEmpty());
    EXPECT_FALSE(controller->thumbnailExistsForPath("/0", size200));
}

// With a handler.

TEST_F(KXMDComposite, IsHandedToTheHandlerOnceAndThenComesFromTheCache)
{
    auto const files = fourColours();
    Received received;
    EXPECT_FALSE(controller->compositeThumbnailForFiles(files, size200, into(received)));
    finish();
    ASSERT_EQ(received.size(), 1u);
    ASSERT_TRUE(received[0]);
    EXPECT_EQ(countOf(*received[0], green), 100u * 100);
    EXPECT_EQ(controller->compositeThumbnailForFiles(files, size200, into(received)), received[0]);
    EXPECT_EQ(controller->compositeThumbnailForFiles(files, size200), received[0]);
    finish();
    EXPECT_EQ(received.size(), 1u);
    EXPECT_EQ(rendered().size(), 4u);
}

TEST_F(KXMDComposite, HandlerIsGivenNothingWhenAFileLosesItsNameMeanwhile)
{
    auto platform = std::make_shared<KXPlatform>(*machine.platform());
    auto const gate = std::make_shared<Gate>();
    platform->thumbnailService = gate;
    controller = KXMDThumbnailController::createWithPlatform(platform);

    EXPECT_FALSE(controller->thumbnailForPath("/gate", size200, nullptr));
    auto const file = track("", "A", "B"); // Named by artist and album alone.
    Received received;
    EXPECT_FALSE(controller->compositeThumbnailForFiles({ file }, size200, into(received)));
    file->setMetadataForKey({}, "Album");
    gate->isOpen.count_down();
    finish();
    EXPECT_THAT(received, ElementsAre(nullptr));
}
