#include "kxmd/image/KXImage.h"

#include "support/Pictures.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace pictures;
using testing::Each;

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

KXRect wholeOf(KXImage const& image) { return { 0, 0, image.size() }; }

/// A new picture with the whole of `image` drawn into the rectangle `into`.
std::shared_ptr<KXImage> drawn(KXImage const& image, KXSize size, KXRect into)
{
    auto const target = KXImage::imageWithSize(size);
    target->drawImageFromRectInRect(image, wholeOf(image), into);
    return target;
}

std::shared_ptr<KXImage> copyOf(KXImage const& image)
{
    return drawn(image, image.size(), wholeOf(image));
}

int alphaAt(KXImage const& image, std::size_t x, std::size_t y) { return pixel(image, x, y)[3]; }

}

// Sizes.

TEST(KXImage, NewOneIsTransparent)
{
    auto const image = KXImage::imageWithSize({ 3, 2 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 3, 2 }));
    EXPECT_EQ(image->pixelWidth(), 3u);
    EXPECT_EQ(image->pixelHeight(), 2u);
    EXPECT_EQ(image->pixels().size(), 24u);
    EXPECT_THAT(image->pixels(), Each(0));
}

TEST(KXImage, KeepsASizeWithFractionsInEnoughPixels)
{
    auto const image = KXImage::imageWithSize({ 100.7, 96.2 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 100.7, 96.2 }));
    EXPECT_EQ(image->pixelWidth(), 101u);
    EXPECT_EQ(image->pixelHeight(), 97u);

    auto const tiny = KXImage::imageWithSize({ 1e-9, 0.5 });
    ASSERT_TRUE(tiny);
    EXPECT_EQ(tiny->size(), (KXSize { 1e-9, 0.5 }));
    EXPECT_EQ(tiny->pixels().size(), KXImage::bytesPerPixel);
}

TEST(KXImage, RefusesSizesThatNoPictureHas)
{
    for (double const length : { 0.0, -0.0, -0.5, -1.0, -1e300, notANumber, infinity, -infinity }) {
        EXPECT_FALSE(KXImage::imageWithSize({ length, 10 })) << length;
        EXPECT_FALSE(KXImage::imageWithSize({ 10, length })) << length;
        EXPECT_FALSE(KXImage::imageWithSize({ length, length })) << length;
    }
}

TEST(KXImage, RefusesMorePixelsThanTheMost)
{
    EXPECT_EQ(KXImage::mostPixels, 16'384u * 16'384);
    EXPECT_EQ(KXImage::longestSide, 131'072u);
    double const most = static_cast<double>(KXImage::mostPixels);
    EXPECT_FALSE(KXImage::imageWithSize({ most + 1, 1 }));
    EXPECT_FALSE(KXImage::imageWithSize({ 0.5, most + 0.5 }));
    EXPECT_FALSE(KXImage::imageWithSize({ 16384.1, 16384 })); // The fraction needs a column.
    double const longest = static_cast<double>(KXImage::longestSide);
    EXPECT_TRUE(KXImage::imageWithSize({ longest, 1 }));
    EXPECT_TRUE(KXImage::imageWithSize({ 1, longest }));
    std::vector<std::uint8_t> const row(KXImage::longestSide * 4);
    EXPECT_TRUE(KXImage::imageWithPixels(row, KXImage::longestSide, 1));
    EXPECT_TRUE(KXImage::imageWithPixels(row, 1, KXImage::longestSide));
    std::vector<std::uint8_t> const longerRow((KXImage::longestSide + 1) * 4);
    EXPECT_FALSE(KXImage::imageWithPixels(longerRow, KXImage::longestSide + 1, 1));
    EXPECT_FALSE(KXImage::imageWithPixels(longerRow, 1, KXImage::longestSide + 1));
    EXPECT_FALSE(KXImage::imageWithPixels({}, 0, 5));
    EXPECT_FALSE(KXImage::imageWithPixels({}, 5, 0));
    EXPECT_FALSE(KXImage::imageWithSize({ longest + 0.5, 1 }));
    EXPECT_FALSE(KXImage::imageWithSize({ 1, longest + 0.5 }));
    EXPECT_FALSE(KXImage::imageWithSize({ most, most }));
    EXPECT_FALSE(KXImage::imageWithSize({ 1e300, 1e300 }));
}

TEST(KXImage, TakesPixelsOfExactlyItsSize)
{
    std::vector<std::uint8_t> const pixels { 1, 2, 3, 4, 5, 6, 7, 8 };
    auto const image = KXImage::imageWithPixels(pixels, 2, 1);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 2, 1 }));
    EXPECT_EQ(pixel(*image, 1, 0), (Colour { 5, 6, 7, 8 }));

    EXPECT_FALSE(KXImage::imageWithPixels(pixels, 1, 1));
    EXPECT_FALSE(KXImage::imageWithPixels(pixels, 3, 1));
    EXPECT_FALSE(KXImage::imageWithPixels(pixels, 2, 0));
    EXPECT_FALSE(KXImage::imageWithPixels({}, 0, 0));
    EXPECT_FALSE(KXImage::imageWithPixels({}, std::size_t { 1 } << 32, std::size_t { 1 } << 32));
    EXPECT_FALSE(KXImage::imageWithPixels({}, std::size_t { 1 } << 62, 1)); // Times 4 is 0.
}

// Drawing.

TEST(KXImage, DrawingAtItsOwnSizeCopiesEveryPixel)
{
    for (auto const& image : { gradient(61, 43), photograph(61, 43), noise(61, 43, 1) })
        EXPECT_TRUE(areEqual(*copyOf(*image), *image));
}

TEST(KXImage, DrawingAPartAtItsOwnSizeCopiesItsPixels)
{
    auto const image = noise(20, 15, 2);
    auto const target = KXImage::imageWithSize({ 7, 5 });
    target->drawImageFromRectInRect(*image, { 4, 3, { 7, 5 } }, { 0, 0, { 7, 5 } });
    auto const expected = imageOf(
        7, 5, [&](std::size_t x, std::size_t y) { return pixel(*image, x + 4, y + 15 - 3 - 5); });
    EXPECT_TRUE(areEqual(*target, *expected));
}

TEST(KXImage, OriginIsAtTheBottomLeft)
{
    auto const image = imageOf(2, 2, [](std::size_t x, std::size_t y) {
        Colour const colours[2][2] { { red, green }, { blue, white } };
        return colours[y][x];
    });
    auto const target = KXImage::imageWithSize({ 10, 6 });
    target->drawImageFromRectInRect(*image, { 0, 0, { 1, 1 } }, { 0, 0, { 1, 1 } });
    target->drawImageFromRectInRect(*image, { 1, 0, { 1, 1 } }, { 9, 0, { 1, 1 } });
    target->drawImageFromRectInRect(*image, { 0, 1, { 1, 1 } }, { 0, 5, { 1, 1 } });
    target->drawImageFromRectInRect(*image, { 1, 1, { 1, 1 } }, { 9, 4, { 1, 2 } });
    EXPECT_EQ(pixel(*target, 0, 5), blue);
    EXPECT_EQ(pixel(*target, 9, 5), white);
    EXPECT_EQ(pixel(*target, 0, 0), red);
    EXPECT_EQ(pixel(*target, 9, 0), green);
    EXPECT_EQ(pixel(*target, 9, 1), green);
    EXPECT_EQ(countOf(*target, transparent), 60u - 5);
}

TEST(KXImage, StretchedPictureStaysUpright)
{
    auto const image = quarters(30, 30);
    auto const target = drawn(*image, { 90, 12 }, { 0, 0, { 90, 12 } });
    EXPECT_EQ(pixel(*target, 0, 0), red);
    EXPECT_EQ(pixel(*target, 89, 0), green);
    EXPECT_EQ(pixel(*target, 0, 11), blue);
    EXPECT_EQ(pixel(*target, 89, 11), white);
}

TEST(KXImage, FlatColourStaysExactAtAnyScale)
{
    for (Colour const colour : { Colour { 201, 77, 3, 255 }, Colour { 100, 50, 0, 101 } }) {
        auto const image = solid(35, 21, colour);
        for (KXSize const size :
            { KXSize { 1, 1 }, KXSize { 5, 3 }, KXSize { 105, 147 }, KXSize { 36, 20 } }) {
            auto const target = drawn(*image, size, { 0, 0, size });
            EXPECT_EQ(countOf(*target, colour), target->pixelWidth() * target->pixelHeight());
        }
    }
}

TEST(KXImage, PartDoesNotTakeOnTheColourAroundIt)
{
    auto const image = imageOf(60, 60, [](std::size_t x, std::size_t y) {
        return x >= 20 && x < 40 && y >= 20 && y < 40 ? green : red;
    });
    for (double const length : { 7.0, 20.0, 33.0, 140.0 }) {
        auto const target = KXImage::imageWithSize({ length, length });
        target->drawImageFromRectInRect(
            *image, { 20, 20, { 20, 20 } }, { 0, 0, { length, length } });
        EXPECT_EQ(countOf(*target, green), target->pixelWidth() * target->pixelHeight()) << length;
    }
}

TEST(KXImage, EdgesOfASizeWithFractionsAreCoveredInPart)
{
    KXSize const size { 100.7, 96.2 };
    auto const target = drawn(*solid(40, 40, white), size, { 0, 0, size });
    EXPECT_EQ(countOf(*target, white), 100u * 96);
    for (std::size_t y = 0; y < 96; ++y)
        ASSERT_NEAR(alphaAt(*target, 100, y), 0.7 * 255, 1) << y;
    for (std::size_t x = 0; x < 100; ++x)
        ASSERT_NEAR(alphaAt(*target, x, 96), 0.2 * 255, 1) << x;
    EXPECT_NEAR(alphaAt(*target, 100, 96), 0.7 * 0.2 * 255, 1);
}

TEST(KXImage, EdgesOfASourceWithFractionsCountByWhatTheyCover)
{
    KXSize const size { 20.7, 16.2 };
    auto const image = drawn(*solid(40, 40, white), size, { 0, 0, size });
    EXPECT_TRUE(areEqual(*drawn(*image, size, { 0, 0, size }), *image));
    for (KXSize const whole : { KXSize { 10, 8 }, KXSize { 21, 17 }, KXSize { 63, 55 } }) {
        auto const target = drawn(*image, whole, { 0, 0, whole });
        // The edges were rounded once, to a 255th of a fifth.
        for (std::size_t y = 0; y < target->pixelHeight(); ++y)
            for (std::size_t x = 0; x < target->pixelWidth(); ++x)
                ASSERT_GE(alphaAt(*target, x, y), 254) << x << ' ' << y;
    }
}

TEST(KXImage, EdgesOfARectangleBetweenPixelsAreCoveredInPart)
{
    auto const target = drawn(*solid(8, 8, white), { 4, 4 }, { 0.75, 0.5, { 2.5, 2.25 } });
    double const columns[] { 0.25, 1, 1, 0.25 };
    double const rows[] { 0, 0.75, 1, 0.5 }; // From the top.
    for (std::size_t y = 0; y < 4; ++y) {
        for (std::size_t x = 0; x < 4; ++x)
            EXPECT_NEAR(alphaAt(*target, x, y), columns[x] * rows[y] * 255, 0.51) << x << ' ' << y;
    }
}

TEST(KXImage, RectangleWithinOnePixelCoversItsArea)
{
    auto const target = drawn(*solid(8, 8, white), { 3, 3 }, { 1.25, 1.25, { 0.5, 0.5 } });
    EXPECT_NEAR(alphaAt(*target, 1, 1), 0.25 * 255, 0.51);
    EXPECT_EQ(countOf(*target, transparent), 8u);
}

TEST(KXImage, WhatLiesOutsideOfThePictureIsLeftOut)
{
    auto const image = noise(10, 10, 3);
    auto const target = drawn(*image, { 4, 4 }, { -3, -5, { 10, 10 } });
    auto const expected
        = imageOf(4, 4, [&](std::size_t x, std::size_t y) { return pixel(*image, x + 3, y + 1); });
    EXPECT_TRUE(areEqual(*target, *expected));

    for (KXRect const outside : { KXRect { 4, 0, { 9, 9 } }, KXRect { -9, 0, { 9, 9 } },
             KXRect { 0, 4, { 9, 9 } }, KXRect { 0, -9, { 9, 9 } }, KXRect { 1e9, 1e9, { 9, 9 } } })
        EXPECT_EQ(countOf(*drawn(*image, { 4, 4 }, outside), transparent), 16u) << outside.x;
}

TEST(KXImage, PartThatReachesPastOneEdgeOfTheSourceDrawsWhatIsThere)
{
    auto const image = solid(2, 2, red);
    for (double const x : { -2, 0 }) {
        for (double const y : { -2, 0 }) {
            auto const target = KXImage::imageWithSize({ 4, 4 });
            target->drawImageFromRectInRect(*image, { x, y, { 4, 4 } }, wholeOf(*target));
            EXPECT_EQ(countOf(*target, red), 4u) << x << ' ' << y;
            EXPECT_EQ(countOf(*target, transparent), 12u) << x << ' ' << y;
        }
    }
}

TEST(KXImage, PartOutsideOfTheSourceDrawsNothing)
{
    auto const image = solid(4, 4, white);
    for (KXRect const outside : { KXRect { 4, 0, { 2, 2 } }, KXRect { -2, 0, { 2, 2 } },
             KXRect { 0, 4, { 2, 2 } }, KXRect { 0, -2, { 2, 2 } }, KXRect { 1e9, 0, { 2, 2 } } }) {
        auto const target = KXImage::imageWithSize({ 4, 4 });
        target->drawImageFromRectInRect(*image, outside, wholeOf(*target));
        EXPECT_EQ(countOf(*target, transparent), 16u) << outside.x << ' ' << outside.y;
    }
}

TEST(KXImage, PartBeyondTheSourceDrawsWhatIsThere)
{
    // Each pixel of the target shows two by two of the source, which covers the middle of it.
    auto const image = solid(4, 4, white);
    auto const target = KXImage::imageWithSize({ 6, 6 });
    target->drawImageFromRectInRect(*image, { -4, -4, { 12, 12 } }, wholeOf(*target));
    auto const expected = imageOf(6, 6, [](std::size_t x, std::size_t y) {
        return x / 2 == 1 && y / 2 == 1 ? white : transparent;
    });
    EXPECT_TRUE(areEqual(*target, *expected));
}

TEST(KXImage, PartFarBeyondTheSourceCostsNoMoreThanTheSource)
{
    auto const image = solid(4, 4, white);
    auto const target = KXImage::imageWithSize({ 4, 4 });
    target->drawImageFromRectInRect(*image, { -1e15, -1e15, { 2e15, 2e15 } }, wholeOf(*target));
    EXPECT_EQ(countOf(*target, transparent), 16u); // Too fine to be seen.
}

TEST(KXImage, EmptyRectanglesDrawNothing)
{
    auto const image = solid(4, 4, white);
    for (KXSize const size : { KXSize { 0, 4 }, KXSize { 4, 0 }, KXSize { -4, 4 }, KXSize { 4, -4 },
             KXSize { notANumber, 4 }, KXSize { 4, notANumber }, KXSize { -infinity, 4 } }) {
        auto const target = KXImage::imageWithSize({ 4, 4 });
        target->drawImageFromRectInRect(*image, { 0, 0, size }, wholeOf(*target));
        target->drawImageFromRectInRect(*image, wholeOf(*image), { 0, 0, size });
        target->drawImageFromRectInRect(*image, wholeOf(*image), { 2, 2, size });
        EXPECT_THAT(target->pixels(), Each(0)) << size.width << ' ' << size.height;
    }
}

TEST(KXImage, RectanglesTooSmallForAFactorDrawNothing)
{
    constexpr double smallest = std::numeric_limits<double>::denorm_min();
    auto const image = solid(4, 4, white);
    for (KXSize const size : { KXSize { smallest, 4 }, KXSize { 4, smallest } }) {
        for (double const where : { 0.0, -smallest / 2 }) {
            auto const target = KXImage::imageWithSize({ 4, 4 });
            target->drawImageFromRectInRect(*image, wholeOf(*image), { where, where, size });
            EXPECT_THAT(target->pixels(), Each(0)) << size.width << ' ' << size.height;
        }
    }
}

TEST(KXImage, RectanglesThatAreNowhereDrawNothing)
{
    auto const image = solid(4, 4, white);
    auto const everything = KXImage::imageWithSize({ 4, 4 });
    everything->drawImageFromRectInRect(*image, { 0, 0, { infinity, 4 } }, wholeOf(*image));
    EXPECT_THAT(everything->pixels(), Each(0));
    for (double const where : { notANumber, infinity, -infinity }) {
        for (KXRect const rect : { KXRect { where, 0, { 4, 4 } }, KXRect { 0, where, { 4, 4 } } }) {
            auto const target = KXImage::imageWithSize({ 4, 4 });
            target->drawImageFromRectInRect(*image, rect, wholeOf(*target));
            target->drawImageFromRectInRect(*image, wholeOf(*image), rect);
            EXPECT_THAT(target->pixels(), Each(0)) << rect.x << ' ' << rect.y;
        }
    }
}

TEST(KXImage, DrawsSourceOverTarget)
{
    Colour const halfRed { 128, 0, 0, 128 };
    auto const onto = [](Colour source, Colour target) {
        auto const image = copyOf(*solid(3, 3, target));
        image->drawImageFromRectInRect(*solid(9, 9, source), { 0, 0, { 9, 9 } }, wholeOf(*image));
        EXPECT_EQ(countOf(*image, pixel(*image, 0, 0)), 9u);
        return pixel(*image, 1, 1);
    };
    EXPECT_EQ(onto(halfRed, blue), (Colour { 128, 0, 127, 255 }));
    EXPECT_EQ(onto(halfRed, transparent), halfRed);
    EXPECT_EQ(onto(halfRed, halfRed), (Colour { 192, 0, 0, 192 }));
    EXPECT_EQ(onto(green, blue), green);
    EXPECT_EQ(onto(transparent, blue), blue);
}

TEST(KXImage, PartialCoverageKeepsTheRestOfTheTarget)
{
    auto const target = copyOf(*solid(1, 1, blue));
    target->drawImageFromRectInRect(*solid(2, 2, red), { 0, 0, { 2, 2 } }, { 0, 0, { 0.25, 1 } });
    EXPECT_EQ(pixel(*target, 0, 0), (Colour { 64, 0, 191, 255 }));
}

TEST(KXImage, ColoursNeverExceedTheirAlpha)
{
    // Edges between opaque and transparent make the kernel overshoot most.
    auto const stripes = imageOf(40, 40,
        [](std::size_t x, std::size_t y) { return (x / 5 + y / 7) % 2 ? white : transparent; });
    for (auto const& source : { stripes, noise(40, 40, 4) }) {
        for (KXSize const size : { KXSize { 133, 121 }, KXSize { 39.3, 40.6 }, KXSize { 13, 17 } })
            for (auto const& target : { solid(150, 150, transparent), noise(150, 150, 5) }) {
                auto const image = copyOf(*target);
                image->drawImageFromRectInRect(*source, wholeOf(*source), { 3.3, 5.7, size });
                for (std::size_t i = 0; i < image->pixels().size(); i += KXImage::bytesPerPixel) {
                    auto const colours = image->pixels().subspan(i, 3);
                    ASSERT_LE(std::ranges::max(colours), image->pixels()[i + 3]) << i;
                }
            }
    }
}
