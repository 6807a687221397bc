#include "kxmd/image/KXImageFittingPrivate.h"

#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <limits>

using namespace pictures;

namespace {

KXSize sizeOfShrunk(double width, double height, KXSize size)
{
    auto const shrunk = shrinkImageToSize(KXImage::imageWithSize({ width, height }), size);
    return shrunk ? shrunk->size() : KXSize();
}

}

TEST(KXImageFitting, WhatFitsIsTheSamePicture)
{
    auto const image = solid(40, 30, green);
    for (KXSize const size : { KXSize { 40, 30 }, { 41, 30 }, { 1000, 31 } })
        EXPECT_EQ(shrinkImageToSize(image, size), image);
}

TEST(KXImageFitting, WhatIsTooLargeKeepsItsProportions)
{
    EXPECT_EQ(sizeOfShrunk(400, 300, { 40, 300 }), (KXSize { 40, 30 }));
    EXPECT_EQ(sizeOfShrunk(400, 300, { 400, 30 }), (KXSize { 40, 30 }));
    EXPECT_EQ(sizeOfShrunk(400, 300, { 399, 300 }), (KXSize { 399, 299 })); // Whole points.
    auto const shrunk = shrinkImageToSize(solid(40, 20, green), { 10, 10 });
    EXPECT_EQ(pixel(*shrunk, 9, 4), green);
}

TEST(KXImageFitting, NoSideIsSmallerThanAPoint)
{
    EXPECT_EQ(sizeOfShrunk(1000, 2, { 10, 10 }), (KXSize { 10, 1 }));
    EXPECT_EQ(sizeOfShrunk(2, 1000, { 10, 10 }), (KXSize { 1, 10 }));
    EXPECT_EQ(sizeOfShrunk(100, 100, { 0.5, 0.5 }), (KXSize { 1, 1 }));
}

TEST(KXImageFitting, SizesThatNoPictureCanHaveGiveNone)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    auto const image = solid(4, 3, green);
    for (KXSize const size : { KXSize { 0, 0 }, { 0, 10 }, { 10, 0 }, { -1, 10 }, { 10, -1 },
             { nan, nan }, { nan, 10 }, { 10, nan } })
        EXPECT_FALSE(shrinkImageToSize(image, size)) << size.width << " x " << size.height;
}
