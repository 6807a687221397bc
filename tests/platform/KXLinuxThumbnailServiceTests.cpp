#include "kxmd/platform/KXPlatform.h"

#include "support/Files.h"
#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <limits>
#include <sys/stat.h>

using namespace pictures;

namespace {

/// Tests of this machine's own thumbnail service.
class KXLinuxThumbnailService : public testing::Test {
protected:
    std::string pictureFile(std::string const& name, KXImage const& image) const
    {
        auto const data = platform->pictureLoader->pngRepresentation(image);
        return folder.write(name, build::Bytes(data.bytes().begin(), data.bytes().end()));
    }

    KXImage::Ref rendered(std::string const& path, KXSize maximumSize) const
    {
        return platform->thumbnailService->imageForPath(path, maximumSize);
    }

    KXPlatform::Ref const platform = KXPlatform::platformOfThisMachine();
    TemporaryFolder const folder;
};

}

TEST_F(KXLinuxThumbnailService, KeepsProportionsWithinTheMaximumSize)
{
    auto const path = pictureFile("wide.png", *photograph(300, 100));
    EXPECT_EQ(rendered(path, { 150, 150 })->size(), (KXSize { 150, 50 }));
    EXPECT_EQ(rendered(path, { 300, 10 })->size(), (KXSize { 30, 10 }));
    EXPECT_EQ(rendered(path, { 100.9, 100.9 })->size(), (KXSize { 100, 33 }));
    EXPECT_EQ(rendered(path, { 1, 1 })->size(), (KXSize { 1, 1 }));
}

TEST_F(KXLinuxThumbnailService, NeverEnlarges)
{
    auto const image = photograph(30, 20);
    auto const path = pictureFile("small.png", *image);
    for (KXSize const size : { KXSize { 30, 20 }, KXSize { 31, 500 }, KXSize { 1e9, 1e9 } })
        EXPECT_TRUE(areEqual(*rendered(path, size), *image));
}

TEST_F(KXLinuxThumbnailService, ShrunkPictureIsAllOfItAndUpright)
{
    auto const image = rendered(pictureFile("quarters.png", *quarters(90, 60)), { 30, 30 });
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 0, 0), red);
    EXPECT_EQ(pixel(*image, 29, 0), green);
    EXPECT_EQ(pixel(*image, 0, 19), blue);
    EXPECT_EQ(pixel(*image, 29, 19), white);
}

TEST_F(KXLinuxThumbnailService, GoesByTheContentAndNotByTheName)
{
    EXPECT_TRUE(rendered(pictureFile("song.mp3", *quarters(9, 9)), { 50, 50 }));
    EXPECT_FALSE(rendered(folder.write("letter.png", build::text("a letter")), { 50, 50 }));
}

TEST_F(KXLinuxThumbnailService, WhatIsNoFileHasNoPicture)
{
    auto const pipe = folder.path() / "pipe.png";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (auto const& path : { std::string(), folder.path().string(), pipe.string(),
             (folder.path() / "missing.png").string() })
        EXPECT_FALSE(rendered(path, { 50, 50 })) << path;
    EXPECT_FALSE(rendered(folder.write("empty.png", {}), { 50, 50 }));
}

TEST_F(KXLinuxThumbnailService, SizeWithoutRoomForAPixelGivesNothing)
{
    auto const path = pictureFile("picture.png", *quarters(9, 9));
    for (double const length : { 0.0, -5.0, 0.9, std::numeric_limits<double>::quiet_NaN() }) {
        EXPECT_FALSE(rendered(path, { length, 50 })) << length;
        EXPECT_FALSE(rendered(path, { 50, length })) << length;
    }
    EXPECT_TRUE(rendered(path, { 1, 50 }));
}

// Icons of this machine.

TEST(KXLinuxIconProvider, EveryTypeHasAnIconOfTheSize)
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

TEST(KXLinuxIconProvider, FoldersLookUnlikeDocuments)
{
    auto const provider = KXPlatform::platformOfThisMachine()->iconProvider;
    auto const iconFor = [&provider](std::string_view type) {
        return provider->iconForFileType(std::string(type), { 32, 32 });
    };
    EXPECT_FALSE(
        areEqual(*iconFor(KXIconProvider::folderType), *iconFor(KXIconProvider::documentType)));
}

TEST(KXLinuxIconProvider, SizeThatNoPictureHasGivesNothing)
{
    auto const provider = KXPlatform::platformOfThisMachine()->iconProvider;
    EXPECT_FALSE(provider->iconForFileType("mp3", { 0, 16 }));
    EXPECT_FALSE(provider->iconForFileType("mp3", { 16, -1 }));
    EXPECT_FALSE(
        provider->iconForFileType("mp3", { std::numeric_limits<double>::quiet_NaN(), 16 }));
}
