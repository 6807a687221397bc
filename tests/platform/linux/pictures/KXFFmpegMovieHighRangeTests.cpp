// Colours of high dynamic range, against the formulas of their standards.

#include "support/MovieTest.h"

#include <algorithm>
#include <cmath>
#include <vector>

using namespace build;
using namespace movies;
using namespace pictures;

namespace {

using Light = std::array<double, 3>;

constexpr std::uint32_t bt2020 = 9, perceptual = 16, hybrid = 18; // ITU-T H.273, 8.1 and 8.2.
constexpr double white = 203; // cd/m2 (ITU-R BT.2408, 2.1).

/// Light in units of white of a code value of PQ (SMPTE ST 2084).
double lightOfPQ(double code)
{
    double const power = std::pow(code, 1 / 78.84375);
    double const ratio = std::max(power - 0.8359375, 0.0) / (18.8515625 - 18.6875 * power);
    return std::pow(ratio, 1 / 0.1593017578125) * 10'000 / white;
}

/// Light of the scene, from 0 to 1, of a code value of HLG (ITU-R BT.2100, table 5).
double lightOfHLG(double code)
{
    double const a = 0.17883277, b = 1 - 4 * a, c = 0.5 - a * std::log(4 * a);
    return code <= 0.5 ? code * code / 3 : (std::exp((code - c) / a) + b) / 12;
}

/// The display's light, of at most 1000 cd/m2, in units of white (ITU-R BT.2100, table 5, OOTF).
Light displayed(Light const& scene)
{
    double const luminance = 0.2627 * scene[0] + 0.678 * scene[1] + 0.0593 * scene[2];
    double const factor = std::pow(luminance, 0.2) * 1000 / white;
    return { scene[0] * factor, scene[1] * factor, scene[2] * factor };
}

/// ITU-R BT.2087, annex 2: from the primaries of BT.2020 to those of BT.709.
Light narrowed(Light const& wide)
{
    return { 1.6605 * wide[0] - 0.5876 * wide[1] - 0.0728 * wide[2],
        -0.1246 * wide[0] + 1.1329 * wide[1] - 0.0083 * wide[2],
        -0.0182 * wide[0] - 0.1006 * wide[1] + 1.1187 * wide[2] };
}

/// What exceeds half of white nears white, with a slope of 1 at the start.
Light pressed(Light const& light)
{
    double const brightest = *std::ranges::max_element(light);
    if (brightest <= 0.5)
        return light;
    double const factor = (1 - 0.5 * std::exp(1 - 2 * brightest)) / brightest;
    return { light[0] * factor, light[1] * factor, light[2] * factor };
}

/// IEC 61966-2-1, from 0 to 255.
double encoded(double light)
{
    double const within = std::clamp(light, 0.0, 1.0);
    return 255 * (within <= 0.0031308 ? within * 12.92 : 1.055 * std::pow(within, 1 / 2.4) - 0.055);
}

Light expectedOf(Light const& codes, std::uint32_t transfer)
{
    Light light {};
    for (std::size_t i = 0; i < 3; ++i)
        light[i] = transfer == perceptual ? lightOfPQ(codes[i]) : lightOfHLG(codes[i]);
    light = pressed(narrowed(transfer == perceptual ? light : displayed(light)));
    return { encoded(light[0]), encoded(light[1]), encoded(light[2]) };
}

/// Code values of every colour channel, from 0 to 1, as red, green and blue of 16 bits.
Bytes frameOf(std::vector<Light> const& pixels)
{
    std::vector<Bytes> numbers;
    for (Light const& codes : pixels) {
        for (double const code : codes)
            numbers.push_back(u16(static_cast<std::uint32_t>(std::lround(code * 65'535))));
    }
    return concatenated(numbers);
}

class KXFFmpegMovieHighRange : public MovieTest {
protected:
    KXImage::Ref shown(
        std::vector<Light> const& pixels, std::uint32_t width, std::uint32_t transfer)
    {
        return firstFrame({ .codec = "b48r",
            .depth = 48,
            .width = width,
            .height = static_cast<std::uint32_t>(pixels.size()) / width,
            .frames = { frameOf(pixels) },
            .entryChildren = colours(bt2020, transfer, 0) });
    }
};

}

TEST_F(KXFFmpegMovieHighRange, GreysFollowTheirCurves)
{
    std::vector<Light> ramp;
    for (int i = 0; i < 4'096; ++i)
        ramp.push_back({ i / 4'095.0, i / 4'095.0, i / 4'095.0 });
    for (std::uint32_t const transfer : { perceptual, hybrid }) {
        auto const image = shown(ramp, 64, transfer);
        ASSERT_TRUE(image);
        double sum = 0;
        for (std::size_t i = 0; i < ramp.size(); ++i) {
            double const actual = pixel(*image, i % 64, i / 64)[1];
            double const expected = expectedOf(ramp[i], transfer)[1];
            EXPECT_NEAR(actual, expected, 1.5) << transfer << ", " << i;
            sum += actual - expected;
        }
        EXPECT_NEAR(sum / 4'096, 0, 0.02) << transfer; // Roundings to either side.
    }
}

TEST_F(KXFFmpegMovieHighRange, ColoursBecomeThoseOfBT709)
{
    std::vector<Light> pixels;
    for (double const low : { 0.3, 0.45 }) {
        for (double const high : { 0.5, 0.6, 0.8 }) {
            pixels.insert(pixels.end(),
                { { high, low, low }, { low, high, low }, { low, low, high }, { high, high, low },
                    { high, low, high }, { low, high, high }, { high, 0.4, low },
                    { low, 0.4, high } });
        }
    }
    for (std::uint32_t const transfer : { perceptual, hybrid }) {
        auto const image = shown(pixels, 16, transfer);
        ASSERT_TRUE(image);
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            Light const expected = expectedOf(pixels[i], transfer);
            Colour const actual = pixel(*image, i % 16, i / 16);
            for (std::size_t channel = 0; channel < 3; ++channel)
                EXPECT_NEAR(actual[channel], expected[channel], 1.5) << transfer << ", " << i;
            EXPECT_EQ(actual[3], 255);
        }
    }
}

TEST_F(KXFFmpegMovieHighRange, KeepsWhatIsTransparent)
{
    // Alpha, red, green and blue of 16 bits.
    Bytes const grey = join(u16(0x80FF), u16(0x8000), u16(0x8000), u16(0x8000));
    auto const alphaOf = [&](std::uint32_t transfer) {
        return firstColour({ .codec = "b64a",
            .depth = 64,
            .frames = { concatenated(std::vector(16 * 8, grey)) },
            .entryChildren = colours(bt2020, transfer, 0) })[3];
    };
    EXPECT_EQ(alphaOf(perceptual), 0x80);
    EXPECT_EQ(alphaOf(hybrid), 0x80);
}
