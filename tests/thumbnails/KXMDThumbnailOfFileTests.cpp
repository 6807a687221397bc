#include "support/ThumbnailTest.h"

using namespace pictures;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr KXSize size50 { 50, 50 };

class KXMDThumbnailOfFile : public ThumbnailTest { };

}

TEST_F(KXMDThumbnailOfFile, ImageFileStandsForTheFile)
{
    machine.pictureLoader->setImageForWord(solid(80, 60, green), "cover");
    auto const file = fileWithImageFile("/x/song.mp3", "cover");
    auto const image = controller->thumbnailForFile(*file, { 50, 40 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 50, 40 }));
    EXPECT_EQ(countOf(*image, green), 2000u);
    EXPECT_THAT(machine.pictureLoader->calls(),
        ElementsAre(FakePictureLoader::Call { "cover", { 50, 40 } }));
    EXPECT_THAT(rendered(), IsEmpty());

    // Kept under the name of the image file, which is the file's, and under no other.
    EXPECT_EQ(controller->thumbnailForFile(*file, { 50, 40 }), image);
    EXPECT_EQ(
        controller->imageForCacheName(controller->cacheNameForFile(*file, { 50, 40 })), image);
    EXPECT_EQ(machine.pictureLoader->calls().size(), 1u);
    EXPECT_FALSE(controller->thumbnailExistsForPath("/x/song.mp3", { 50, 40 }));
}

TEST_F(KXMDThumbnailOfFile, ImageFileIsCroppedToASquare)
{
    auto const wide = imageOf(
        300, 200, [](std::size_t x, std::size_t) { return x >= 50 && x < 250 ? green : red; });
    machine.pictureLoader->setImageForWord(wide, "cover");
    auto const image = controller->thumbnailForFile(*fileWithImageFile("", "cover"), size50);
    ASSERT_TRUE(image);
    EXPECT_EQ(countOf(*image, green), 2500u);
}

TEST_F(KXMDThumbnailOfFile, FilesWithOneImageFileShareThePicture)
{
    machine.pictureLoader->setImageForWord(solid(80, 60, green), "cover");
    auto const image = controller->thumbnailForFile(*fileWithImageFile("/a", "cover"), size50);
    ASSERT_TRUE(image);
    EXPECT_EQ(controller->thumbnailForFile(*fileWithImageFile("/b", "cover"), size50), image);
}

TEST_F(KXMDThumbnailOfFile, MissingImageFileFallsThroughToThePath)
{
    auto const file = coloured("/x/song.mp3", blue);
    file->setMetadataForKey((folder.path() / "missing.png").string(), "ThumbnailPath");
    auto const image = controller->thumbnailForFile(*file, size50);
    ASSERT_TRUE(image);
    EXPECT_EQ(countOf(*image, blue), 2500u);
    EXPECT_THAT(machine.pictureLoader->calls(), IsEmpty());
    EXPECT_TRUE(controller->thumbnailExistsForPath("/x/song.mp3", size50));
    EXPECT_FALSE(controller->imageForCacheName(controller->cacheNameForFile(*file, size50)));
}

TEST_F(KXMDThumbnailOfFile, ImageFileThatIsNoneFallsThroughToThePath)
{
    auto const file = fileWithImageFile("/x/song.mp3", "letter");
    machine.thumbnailService->setImageForPath(solid(9, 9, blue), "/x/song.mp3");
    auto const image = controller->thumbnailForFile(*file, size50);
    ASSERT_TRUE(image);
    EXPECT_EQ(countOf(*image, blue), 2500u);
    EXPECT_EQ(machine.pictureLoader->calls().size(), 1u);
    EXPECT_FALSE(controller->imageForCacheName(controller->cacheNameForFile(*file, size50)));

    // The image file is not given up: with it there, it takes over.
    machine.pictureLoader->setImageForWord(solid(9, 9, green), "letter");
    EXPECT_EQ(pixel(*controller->thumbnailForFile(*file, size50), 0, 0), green);
}

TEST_F(KXMDThumbnailOfFile, WithoutImageAndPathThereIsNone)
{
    EXPECT_FALSE(controller->thumbnailForFile(*fileWithImageFile("", "letter"), size50));
    EXPECT_FALSE(controller->thumbnailForFile(*track("", "A", "B"), size50));
    EXPECT_THAT(rendered(), IsEmpty());
}

TEST_F(KXMDThumbnailOfFile, TracksOfAnAlbumAreCachedByTheirPathsAndNotByTheAlbum)
{
    coloured("/1.mp3", red);
    coloured("/2.mp3", green);
    auto const first = track("/1.mp3", "A", "B"), second = track("/2.mp3", "A", "B");
    auto const album = controller->cacheNameForFile(*first, size50);
    EXPECT_EQ(album, controller->cacheNameForFile(*second, size50));

    EXPECT_EQ(pixel(*controller->thumbnailForFile(*first, size50), 0, 0), red);
    EXPECT_FALSE(controller->imageForCacheName(album));
    EXPECT_TRUE(controller->thumbnailExistsForPath("/1.mp3", size50));
    EXPECT_EQ(pixel(*controller->thumbnailForFile(*second, size50), 0, 0), green);
    EXPECT_FALSE(controller->imageForCacheName(album));
    EXPECT_THAT(rendered(), ElementsAre("/1.mp3", "/2.mp3"));
}

TEST_F(KXMDThumbnailOfFile, PictureStoredForTheAlbumIsThatOfEveryTrack)
{
    auto const cover = solid(50, 50, white);
    auto const first = track("/1.mp3", "A", "B"), second = track("/2.mp3", "A", "B");
    controller->setImageForCacheName(cover, controller->cacheNameForFile(*first, size50));
    EXPECT_EQ(controller->thumbnailForFile(*first, size50), cover);
    EXPECT_EQ(controller->thumbnailForFile(*second, size50), cover);
    EXPECT_THAT(rendered(), IsEmpty());
}

TEST_F(KXMDThumbnailOfFile, CompositeOfOneAlbumStoresThePictureOfTheAlbum)
{
    coloured("/1.mp3", red);
    coloured("/2.mp3", green);
    auto const first = track("/1.mp3", "A", "B"), second = track("/2.mp3", "A", "B");
    auto const composite = controller->compositeThumbnailForFiles({ first, second }, size50);
    ASSERT_TRUE(composite);
    EXPECT_EQ(controller->thumbnailForFile(*second, size50), composite);
    EXPECT_EQ(countOf(*composite, red), 2500u);
}
