#include "support/ThumbnailTest.h"

#include <cmath>
#include <latch>
#include <set>
#include <thread>

using namespace pictures;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr KXSize size100 { 100, 100 };
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

class KXMDThumbnailControllerTest : public ThumbnailTest { };

}

// Cache names.

TEST_F(KXMDThumbnailControllerTest, CacheNameOfAPathIsThatOfItsTextAndWholeSize)
{
    // By sha1sum, of "/x/song.mp3_100x100".
    std::string const name = "59e7a8c475b374a2e2f99a5546aa8484ced70a94";
    EXPECT_EQ(controller->cacheNameForPath("/x/song.mp3", { 100.7, 100.2 }), name);
    EXPECT_EQ(controller->cacheNameForPath("/x/song.mp3", size100), name);
    EXPECT_NE(controller->cacheNameForPath("/x/song.mp3", { 101, 100 }), name);
    EXPECT_THAT(controller->cacheNameForPath("", { 0, 0 }), MatchesRegex("[0-9a-f]{40}"));
}

TEST_F(KXMDThumbnailControllerTest, FileIsNamedAfterArtistAndAlbum)
{
    auto const named
        = [this](std::string const& key) { return controller->cacheNameForPath(key, size100); };
    auto const file = track("/x/song.mp3", "A", "B");
    EXPECT_EQ(controller->cacheNameForFile(*file, size100), named("A_B"));
    file->setMetadataForKey("", "Album Artist");
    EXPECT_EQ(controller->cacheNameForFile(*file, size100), named("A_B"));
    file->setMetadataForKey("Various", "Album Artist");
    EXPECT_EQ(controller->cacheNameForFile(*file, size100), named("Various_B"));
    file->setMetadataForKey({}, "Artist");
    EXPECT_EQ(controller->cacheNameForFile(*file, size100), named("Various_B"));
}

TEST_F(KXMDThumbnailControllerTest, FileWithoutArtistOrAlbumIsNamedAfterItsPath)
{
    auto const name = controller->cacheNameForPath("/x/song.mp3", size100);
    for (auto const& file : { track("/x/song.mp3", "A", ""), track("/x/song.mp3", "", "B"),
             track("/x/song.mp3", "", ""), fileAt("/x/song.mp3") })
        EXPECT_EQ(controller->cacheNameForFile(*file, size100), name);
}

TEST_F(KXMDThumbnailControllerTest, FileWithThumbnailPathIsNamedAfterThat)
{
    auto const file = track("/x/song.mp3", "A", "B");
    file->setMetadataForKey("/covers/b.png", "ThumbnailPath");
    auto const name = controller->cacheNameForPath("/covers/b.png", size100);
    EXPECT_EQ(controller->cacheNameForFile(*file, size100), name);
    file->setMetadataForKey("", "Album");
    EXPECT_EQ(controller->cacheNameForFile(*file, size100), name);
    file->setMetadataForKey("", "ThumbnailPath");
    EXPECT_NE(controller->cacheNameForFile(*file, size100), name);
}

TEST_F(KXMDThumbnailControllerTest, FileWithNothingToGoByHasNoNameAndNoPicture)
{
    for (auto const& file : { fileAt(""), track("", "A", ""), track("", "", "B") }) {
        Received received;
        EXPECT_EQ(controller->cacheNameForFile(*file, size100), "");
        EXPECT_FALSE(controller->thumbnailForFile(*file, size100));
        EXPECT_FALSE(controller->thumbnailForFile(file, size100, into(received)));
        finish();
        EXPECT_THAT(received, IsEmpty());
    }
    EXPECT_THAT(rendered(), IsEmpty());
}

// Scaling.

TEST_F(KXMDThumbnailControllerTest, PictureOfTheRequestedSizeIsReturnedItself)
{
    auto const image = noise(100, 100, 1);
    EXPECT_EQ(controller->scaleImage(image, size100), image);
    EXPECT_NE(controller->scaleImage(image, { 100, 100.5 }), image);
    Image const withFractions = KXImage::imageWithSize({ 100.7, 96.2 });
    EXPECT_EQ(controller->scaleImage(withFractions, { 100.7, 96.2 }), withFractions);
    EXPECT_NE(controller->scaleImage(withFractions, { 101, 97 }), withFractions);
}

TEST_F(KXMDThumbnailControllerTest, CentredSquareIsScaled)
{
    // Green is the square; not one pixel of what is red may show.
    auto const wide = imageOf(
        300, 200, [](std::size_t x, std::size_t) { return x >= 50 && x < 250 ? green : red; });
    auto const tall = imageOf(
        200, 300, [](std::size_t, std::size_t y) { return y >= 50 && y < 250 ? green : red; });
    for (auto const& image : { wide, tall }) {
        auto const scaled = controller->scaleImage(image, size100);
        ASSERT_TRUE(scaled);
        EXPECT_EQ(scaled->size(), size100);
        EXPECT_EQ(countOf(*scaled, green), 100u * 100);
    }
}

TEST_F(KXMDThumbnailControllerTest, WholeSquareIsScaled)
{
    // Its border, four pixels wide, must still be there.
    auto const wide = imageOf(300, 200, [](std::size_t x, std::size_t y) {
        return x >= 54 && x < 246 && y >= 4 && y < 196 ? green : blue;
    });
    auto const scaled = controller->scaleImage(wide, size100);
    ASSERT_TRUE(scaled);
    for (std::size_t i : { 0u, 50u, 99u }) {
        EXPECT_EQ(pixel(*scaled, 0, i), blue) << i;
        EXPECT_EQ(pixel(*scaled, 99, i), blue) << i;
        EXPECT_EQ(pixel(*scaled, i, 0), blue) << i;
        EXPECT_EQ(pixel(*scaled, i, 99), blue) << i;
    }
    EXPECT_EQ(pixel(*scaled, 3, 3), green);
    EXPECT_EQ(pixel(*scaled, 96, 96), green);
}

TEST_F(KXMDThumbnailControllerTest, SquareIsStretchedToARequestThatIsNone)
{
    auto const wide = imageOf(80, 40,
        [](std::size_t x, std::size_t y) { return pixel(*quarters(40, 40), (x + 20) % 40, y); });
    auto const scaled = controller->scaleImage(wide, { 60, 20 });
    ASSERT_TRUE(scaled);
    EXPECT_EQ(scaled->size(), (KXSize { 60, 20 }));
    EXPECT_EQ(pixel(*scaled, 5, 2), red); // Upright, and nothing left free at the sides.
    EXPECT_EQ(pixel(*scaled, 54, 2), green);
    EXPECT_EQ(pixel(*scaled, 5, 17), blue);
    EXPECT_EQ(pixel(*scaled, 54, 17), white);
    EXPECT_EQ(countOf(*scaled, transparent), 0u);
}

TEST_F(KXMDThumbnailControllerTest, ScalesToExactlyTheRequestedSize)
{
    auto const scaled = controller->scaleImage(solid(40, 40, white), { 100.7, 96.2 });
    ASSERT_TRUE(scaled);
    EXPECT_EQ(scaled->size(), (KXSize { 100.7, 96.2 }));
    for (KXSize const size : { KXSize { 0, 9 }, KXSize { -9, 9 }, KXSize { 9, notANumber } })
        EXPECT_FALSE(controller->scaleImage(solid(40, 40, white), size));
}

// Paths.

TEST_F(KXMDThumbnailControllerTest, AsksTheServiceForTwiceTheSize)
{
    machine.thumbnailService->setImageForPath(solid(150, 60, green), "/x/song.mp3");
    auto const image = controller->thumbnailForPath("/x/song.mp3", { 100.5, 50.25 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 100.5, 50.25 }));
    EXPECT_THAT(machine.thumbnailService->calls(),
        ElementsAre(FakeThumbnailService::Call { "/x/song.mp3", { 201, 100.5 } }));
}

TEST_F(KXMDThumbnailControllerTest, SmallPicturesAreEnlarged)
{
    machine.thumbnailService->setImageForPath(quarters(10, 10), "/x");
    auto const image = controller->thumbnailForPath("/x", size100);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), size100);
    EXPECT_EQ(pixel(*image, 10, 10), red);
    EXPECT_EQ(pixel(*image, 90, 90), white);
}

TEST_F(KXMDThumbnailControllerTest, PathIsRenderedOncePerSize)
{
    machine.thumbnailService->setImageForPath(solid(10, 10, green), "/x");
    auto const image = controller->thumbnailForPath("/x", size100);
    EXPECT_EQ(controller->thumbnailForPath("/x", size100), image);
    EXPECT_EQ(controller->thumbnailForPath("/x", { 100.9, 100 }), image); // By the same name.
    EXPECT_THAT(rendered(), ElementsAre("/x"));
    EXPECT_NE(controller->thumbnailForPath("/x", { 50, 50 }), image);
    EXPECT_THAT(rendered(), ElementsAre("/x", "/x"));
}

TEST_F(KXMDThumbnailControllerTest, NothingIsCachedOnFailure)
{
    LogCapture const log;
    EXPECT_FALSE(controller->thumbnailForPath("/x", size100));
    EXPECT_FALSE(controller->thumbnailExistsForPath("/x", size100));
    EXPECT_FALSE(controller->thumbnailForFile(*fileAt("/x"), size100));
    EXPECT_THAT(rendered(), ElementsAre("/x", "/x"));
    machine.thumbnailService->setImageForPath(solid(10, 10, green), "/x");
    EXPECT_TRUE(controller->thumbnailForPath("/x", size100)); // Tried again.
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KXMDThumbnailControllerTest, SizeThatNoPictureHasGivesAndCachesNothing)
{
    machine.thumbnailService->setImageForPath(solid(10, 10, green), "/x");
    for (KXSize const size : { KXSize { 0, 0 }, KXSize { -5, 5 }, KXSize { notANumber, 5 } }) {
        EXPECT_FALSE(controller->thumbnailForPath("/x", size));
        EXPECT_FALSE(controller->thumbnailExistsForPath("/x", size));
    }
}

TEST_F(KXMDThumbnailControllerTest, PresenceTestNeverProducesAPicture)
{
    machine.thumbnailService->setImageForPath(solid(10, 10, green), "/x");
    EXPECT_FALSE(controller->thumbnailExistsForPath("/x", size100));
    EXPECT_THAT(rendered(), IsEmpty());
    EXPECT_TRUE(controller->thumbnailForPath("/x", size100));
    EXPECT_TRUE(controller->thumbnailExistsForPath("/x", size100));
    EXPECT_FALSE(controller->thumbnailExistsForPath("/x", { 100, 99 }));
    EXPECT_FALSE(controller->thumbnailExistsForPath("/y", size100));
}

// Pictures that the caller supplies.

TEST_F(KXMDThumbnailControllerTest, SuppliedPictureIsUsedInsteadOfTheService)
{
    controller->setThumbnailForPath("/x", solid(300, 200, green), { 40, 20 });
    EXPECT_TRUE(controller->thumbnailExistsForPath("/x", { 40, 20 }));
    auto const image = controller->thumbnailForPath("/x", { 40, 20 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 40, 20 }));
    EXPECT_EQ(countOf(*image, green), 800u);
    EXPECT_EQ(controller->thumbnailForFile(*fileAt("/x"), { 40, 20 }), image);
    EXPECT_THAT(rendered(), IsEmpty());
}

TEST_F(KXMDThumbnailControllerTest, SuppliedPictureMayBeOnePointLarge)
{
    controller->setThumbnailForPath("/x", solid(30, 30, green), { 1, 1 });
    EXPECT_TRUE(controller->thumbnailExistsForPath("/x", { 1, 1 }));
}

TEST_F(KXMDThumbnailControllerTest, SuppliedPictureIsAStretchedSquare)
{
    auto const wide = imageOf(120, 40, [](std::size_t x, std::size_t) {
        return x < 40 || x >= 80 ? red : x < 60 ? green : blue;
    });
    controller->setThumbnailForPath("/x", wide, { 90, 10 });
    auto const image = controller->thumbnailForPath("/x", { 90, 10 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 90, 10 }));
    EXPECT_EQ(pixel(*image, 0, 5), green);
    EXPECT_EQ(pixel(*image, 89, 5), blue);
    EXPECT_EQ(countOf(*image, red), 0u);
}

TEST_F(KXMDThumbnailControllerTest, SupplyingNothingOrNoSizeStoresNothing)
{
    auto const image = solid(10, 10, green);
    controller->setThumbnailForPath("/x", image, { 0, 10 });
    controller->setThumbnailForPath("/x", image, { 10, 0 });
    controller->setThumbnailForPath("/x", image, { -10, 10 });
    controller->setThumbnailForPath("/x", nullptr, { 10, 10 });
    controller->setThumbnailForPath("", image, { 10, 10 });
    for (KXSize const size :
        { KXSize { 0, 10 }, KXSize { 10, 0 }, KXSize { -10, 10 }, KXSize { 10, 10 } })
        EXPECT_FALSE(controller->thumbnailExistsForPath("/x", size)) << size.width;
    EXPECT_FALSE(controller->thumbnailExistsForPath("", { 10, 10 }));
}

// The cache.

TEST_F(KXMDThumbnailControllerTest, KeepsPicturesByCacheName)
{
    auto const first = solid(2, 2, red), second = solid(2, 2, green);
    EXPECT_FALSE(controller->imageForCacheName("name"));
    controller->setImageForCacheName(first, "name");
    EXPECT_EQ(controller->imageForCacheName("name"), first);
    controller->setImageForCacheName(second, "name");
    EXPECT_EQ(controller->imageForCacheName("name"), second);
    controller->setImageForCacheName(nullptr, "name");
    EXPECT_EQ(controller->imageForCacheName("name"), second);
    controller->setImageForCacheName(first, "");
    EXPECT_FALSE(controller->imageForCacheName(""));
}

TEST_F(KXMDThumbnailControllerTest, CachesOfControllersAreTheirOwn)
{
    auto const other = KXMDThumbnailController::createWithPlatform(machine.platform());
    controller->setImageForCacheName(solid(2, 2, red), "name");
    EXPECT_FALSE(other->imageForCacheName("name"));
}

TEST_F(KXMDThumbnailControllerTest, PictureOutlivesItsEviction)
{
    controller = KXMDThumbnailController::createWithPlatform(machine.platform(), 16);
    controller->setImageForCacheName(solid(2, 2, red), "red");
    auto const image = controller->imageForCacheName("red");
    controller->setImageForCacheName(solid(2, 2, green), "green");
    EXPECT_FALSE(controller->imageForCacheName("red"));
    ASSERT_TRUE(image);
    EXPECT_EQ(countOf(*image, red), 4u);
}

TEST(KXMDThumbnailController, SharedOneIsTheSameOnEveryThread)
{
    std::latch start(4);
    KXMDThumbnailController::Ref shared[4];
    {
        std::vector<std::jthread> threads;
        for (auto& controller : shared) {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                controller = KXMDThumbnailController::sharedController();
            });
        }
    }
    EXPECT_TRUE(shared[0]);
    EXPECT_THAT(shared, Each(KXMDThumbnailController::sharedController()));
}

using KXMDThumbnailControllerNull = ThumbnailTest;

TEST_F(KXMDThumbnailControllerNull, NoImageIsScaledToNone)
{
    EXPECT_EQ(controller->scaleImage(nullptr, { 10, 10 }), nullptr);
    EXPECT_EQ(controller->jpgRepresentationOfImage(nullptr).length(), 0u);
    EXPECT_EQ(machine.pictureLoader->encodings(), 0u);
}

TEST_F(KXMDThumbnailControllerNull, NoFileHasNoPictureAndNoHandlerIsCalled)
{
    Received received;
    EXPECT_EQ(controller->thumbnailForFile(nullptr, { 10, 10 }, into(received)), nullptr);
    EXPECT_EQ(controller->iconForFile(nullptr, { 10, 10 }, into(received)), nullptr);
    finish();
    EXPECT_TRUE(received.empty());
}

TEST_F(KXMDThumbnailControllerNull, CompositeThatHoldsNoFileIsNone)
{
    Received received;
    auto const file = coloured("/a", pictures::red);
    for (KXMDThumbnailController::Files const& files :
        { KXMDThumbnailController::Files { nullptr }, { file, nullptr }, { nullptr, file } }) {
        EXPECT_EQ(controller->cacheNameForCompositeFiles(files, { 10, 10 }), "");
        EXPECT_EQ(controller->compositeThumbnailForFiles(files, { 10, 10 }), nullptr);
        EXPECT_EQ(
            controller->compositeThumbnailForFiles(files, { 10, 10 }, into(received)), nullptr);
    }
    finish();
    EXPECT_TRUE(received.empty());
    EXPECT_TRUE(rendered().empty());
}

using KXMDThumbnailControllerEncoding = ThumbnailTest;

TEST_F(KXMDThumbnailControllerEncoding, PictureIsEncodedOnceWhileItLives)
{
    machine.pictureLoader->setJPGRepresentation(KXData({ 1, 2, 3 }));
    auto image = pictures::solid(4, 4, pictures::red);
    EXPECT_EQ(controller->jpgRepresentationOfImage(image).length(), 3u);
    EXPECT_EQ(controller->jpgRepresentationOfImage(image).length(), 3u);
    EXPECT_EQ(machine.pictureLoader->encodings(), 1u);
    auto const other = pictures::solid(4, 4, pictures::red);
    EXPECT_EQ(controller->jpgRepresentationOfImage(other).length(), 3u);
    EXPECT_EQ(machine.pictureLoader->encodings(), 2u);
}

TEST_F(KXMDThumbnailControllerEncoding, PictureThatCannotBeEncodedIsTriedAgain)
{
    auto const image = pictures::solid(4, 4, pictures::red);
    machine.pictureLoader->setJPGRepresentation({});
    EXPECT_EQ(controller->jpgRepresentationOfImage(image).length(), 0u);
    machine.pictureLoader->setJPGRepresentation(KXData({ 1 }));
    EXPECT_EQ(controller->jpgRepresentationOfImage(image).length(), 1u);
}

TEST_F(KXMDThumbnailControllerTest, PictureThatLeavesTheCacheMayAskTheControllerAtItsEnd)
{
    int ends = 0;
    auto const hostsPicture = [&] {
        Image const pixels = solid(64, 64, red);
        return Image(pixels.get(), [this, pixels, &ends](KXImage const*) {
            EXPECT_FALSE(controller->thumbnailExistsForPath("/other", { 64, 64 }));
            ++ends;
        });
    };
    controller->setThumbnailForPath("/a", hostsPicture(), { 64, 64 });
    EXPECT_EQ(ends, 0);
    controller->setThumbnailForPath("/a", hostsPicture(), { 64, 64 }); // In place of the first.
    EXPECT_EQ(ends, 1);
    machine.memoryPressure->runShort();
    EXPECT_EQ(ends, 2);
}
