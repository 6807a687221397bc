#include "kxmd/image/KXImage.h"

#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

using namespace pictures;

namespace {

constexpr double inDecibels = 40;

KXImage::Ref scaled(KXImage const& image, KXSize size)
{
    auto const target = KXImage::imageWithSize(size);
    target->drawImageFromRectInRect(image, { 0, 0, image.size() }, { 0, 0, size });
    return target;
}

/// R. Keys, "Cubic convolution interpolation", 1981, with a = -1/2.
double cubic(double x)
{
    constexpr double a = -0.5;
    x = std::abs(x);
    if (x < 1)
        return (a + 2) * x * x * x - (a + 3) * x * x + 1;
    return x < 2 ? a * (x * x * x - 5 * x * x + 8 * x - 4) : 0;
}

/// One pixel of a scaled picture, straight from the definition: a weighted mean over both axes at
/// once, the pixels of the edge going on for ever.
Colour meanAround(KXImage const& image, double x, double y, double scaleX, double scaleY)
{
    auto const at = [](double position, std::size_t count) {
        return static_cast<std::size_t>(std::clamp(position, 0.0, static_cast<double>(count) - 1));
    };
    double sums[4] {}, total = 0;
    for (double row = std::floor(y - 2 * scaleY); row <= y + 2 * scaleY; ++row) {
        for (double column = std::floor(x - 2 * scaleX); column <= x + 2 * scaleX; ++column) {
            double const weight
                = cubic((column + 0.5 - x) / scaleX) * cubic((row + 0.5 - y) / scaleY);
            Colour const colour
                = pixel(image, at(column, image.pixelWidth()), at(row, image.pixelHeight()));
            for (std::size_t channel = 0; channel < 4; ++channel)
                sums[channel] += weight * colour[channel];
            total += weight;
        }
    }
    Colour mean;
    double const alpha = std::clamp(sums[3] / total, 0.0, 255.0);
    for (std::size_t channel = 0; channel < 4; ++channel)
        mean[channel]
            = static_cast<std::uint8_t>(std::round(std::clamp(sums[channel] / total, 0.0, alpha)));
    return mean;
}

/// The same as `scaled` for whole sizes, slowly.
KXImage::Ref scaledByDefinition(KXImage const& image, std::size_t width, std::size_t height)
{
    double const scaleX = image.size().width / static_cast<double>(width);
    double const scaleY = image.size().height / static_cast<double>(height);
    return imageOf(width, height, [&](std::size_t x, std::size_t y) {
        return meanAround(image, (static_cast<double>(x) + 0.5) * scaleX,
            (static_cast<double>(y) + 0.5) * scaleY, std::max(1.0, scaleX), std::max(1.0, scaleY));
    });
}

double likenessToDefinition(KXImage const& image, std::size_t width, std::size_t height)
{
    KXSize const size { static_cast<double>(width), static_cast<double>(height) };
    return likeness(*scaled(image, size), *scaledByDefinition(image, width, height));
}

/// Two waves over the whole picture, which no scaling should move.
KXImage::Ref waves(std::size_t width, std::size_t height)
{
    return imageOf(width, height, [=](std::size_t column, std::size_t row) {
        double const x = (static_cast<double>(column) + 0.5) / static_cast<double>(width);
        double const y = (static_cast<double>(row) + 0.5) / static_cast<double>(height);
        auto const wave = [](double turns) {
            return static_cast<std::uint8_t>(
                std::round(127.5 + 100 * std::cos(2 * std::numbers::pi * turns)));
        };
        return Colour { wave(2 * x), wave(3 * y), wave(x + y), 255 };
    });
}

}

TEST(KXImageScaling, ShrinksByOddFactorsAsDefined)
{
    auto const image = photograph(315, 189);
    EXPECT_GE(likenessToDefinition(*image, 105, 63), inDecibels);
    EXPECT_GE(likenessToDefinition(*image, 45, 27), inDecibels);
    EXPECT_GE(likenessToDefinition(*image, 35, 21), inDecibels);
}

TEST(KXImageScaling, EnlargesByOddFactorsAsDefined)
{
    auto const image = photograph(63, 45);
    EXPECT_GE(likenessToDefinition(*image, 189, 135), inDecibels);
    EXPECT_GE(likenessToDefinition(*image, 315, 225), inDecibels);
}

TEST(KXImageScaling, TakesFactorsThatAreNotWholeAndDifferByAxis)
{
    auto const image = photograph(200, 150);
    EXPECT_GE(likenessToDefinition(*image, 127, 89), inDecibels);
    EXPECT_GE(likenessToDefinition(*image, 311, 41), inDecibels);
    EXPECT_GE(likenessToDefinition(*image, 199, 151), inDecibels);
}

TEST(KXImageScaling, ScalesTransparencyAsDefined)
{
    auto const image = noise(64, 48, 6);
    EXPECT_GE(likenessToDefinition(*image, 21, 16), inDecibels);
    EXPECT_GE(likenessToDefinition(*image, 192, 144), inDecibels);
}

TEST(KXImageScaling, WhatTheKernelTakesOffBesideAnEdgeShowsNowhere)
{
    // Its weights are negative from one to two pixels away: of the enlarged pixels, from the
    // eighteenth on.
    constexpr std::size_t side = 32, afterTheEdge = 18;
    auto const drawnOver = [](Colour first, Colour second, Colour below, double height) {
        auto const edge
            = imageOf(8, 1, [&](std::size_t x, std::size_t) { return x < 4 ? first : second; });
        auto const target = KXImage::imageWithSize({ side, 1 });
        auto const ground = solid(side, 1, below);
        target->drawImageFromRectInRect(*ground, { 0, 0, ground->size() }, { 0, 0, { side, 1 } });
        target->drawImageFromRectInRect(*edge, { 0, 0, edge->size() }, { 0, 0, { side, height } });
        return target;
    };
    constexpr Colour black { 0, 0, 0, 255 }, light { 200, 200, 200, 200 },
        grey { 101, 101, 101, 255 }, halfGrey { 51, 51, 51, 255 };
    auto const transparency = drawnOver(black, transparent, light, 1);
    auto const darkness = drawnOver(white, black, grey, 0.5);
    for (std::size_t x = afterTheEdge; x < side; ++x) {
        EXPECT_EQ(pixel(*transparency, x, 0), light) << x;
        EXPECT_EQ(pixel(*darkness, x, 0), halfGrey) << x;
    }
}

TEST(KXImageScaling, MovesNothing)
{
    auto const image = waves(210, 150);
    EXPECT_GE(likeness(*scaled(*image, { 70, 50 }), *waves(70, 50)), inDecibels);
    EXPECT_GE(likeness(*scaled(*image, { 630, 450 }), *waves(630, 450)), inDecibels);
    // A picture off by half a pixel is far less alike, so the measure sees it.
    auto const shifted = KXImage::imageWithSize({ 70, 50 });
    shifted->drawImageFromRectInRect(*image, { 0, 0, { 210, 150 } }, { 0.5, 0, { 70, 50 } });
    EXPECT_LT(likeness(*shifted, *waves(70, 50)), 35);
}

TEST(KXImageScaling, FineStripesBecomeGrey)
{
    auto const stripes = imageOf(300, 300, [](std::size_t x, std::size_t) {
        return x % 2 ? white : Colour { 0, 0, 0, 255 };
    });
    auto const small = scaled(*stripes, { 60, 60 });
    for (std::size_t x = 2; x < 58; ++x)
        ASSERT_NEAR(pixel(*small, x, 30)[0], 127.5, 8) << x;
}

TEST(KXImageScaling, CentredSquareIsDrawnWithFractions)
{
    // 301 by 200: the square begins at 50.5, in the middle of a pixel.
    auto const image = imageOf(301, 200, [](std::size_t x, std::size_t) {
        return Colour { static_cast<std::uint8_t>(x / 2), 0, 0, 255 };
    });
    auto const target = KXImage::imageWithSize({ 20, 20 });
    target->drawImageFromRectInRect(*image, { 50.5, 0, { 200, 200 } }, { 0, 0, { 20, 20 } });
    for (std::size_t x = 1; x < 19; ++x) {
        double const centre = 50.5 + (static_cast<double>(x) + 0.5) * 10;
        ASSERT_NEAR(pixel(*target, x, 10)[0], centre / 2 - 0.5, 0.8) << x;
    }
}

TEST(KXImageScaling, PixelCoveredInPartShowsTheMiddleOfWhatCoversIt)
{
    // Three pixels over one and a half: the half lies on the last of the three, by the kernel
    // three parts in four.
    auto const image = imageOf(3, 1, [](std::size_t x, std::size_t) {
        return x == 2 ? red : Colour { 0, 0, 0, 255 };
    });
    auto const target = KXImage::imageWithSize({ 2, 1 });
    target->drawImageFromRectInRect(*image, { 0, 0, { 3, 1 } }, { 0, 0, { 1.5, 1 } });
    EXPECT_NEAR(pixel(*target, 1, 0)[0], 0.5 * 0.75 * 255, 1);
    EXPECT_NEAR(pixel(*target, 1, 0)[3], 0.5 * 255, 1);
}
