#include "support/FileLimit.h"
#include "support/LogCapture.h"
#include "support/MovieTest.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <unistd.h>

using namespace build;
using namespace movies;
using namespace pictures;

namespace {

class KXFFmpegMovieLoader : public MovieTest { };

/// A frame whose left half is red and whose right half is blue, the lower half of both darker.
Bytes quarteredFrame()
{
    std::vector<Bytes> pixels;
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 16; ++x) {
            int const light = y < 4 ? 255 : 128;
            pixels.push_back(x < 8 ? bytes({ light, 0, 0 }) : bytes({ 0, 0, light }));
        }
    }
    return concatenated(pixels);
}

/// The colours of a picture's corners: top left, top right, bottom left, bottom right.
std::array<Colour, 4> cornersOf(KXImage const& image)
{
    std::size_t const right = image.pixelWidth() - 1;
    std::size_t const bottom = image.pixelHeight() - 1;
    return { pixel(image, 0, 0), pixel(image, right, 0), pixel(image, 0, bottom),
        pixel(image, right, bottom) };
}

/// Whether two colours differ by a rounding at most.
testing::AssertionResult areNear(Colour one, Colour other, int most = 2)
{
    for (std::size_t i = 0; i < one.size(); ++i) {
        if (std::abs(one[i] - other[i]) > most)
            return testing::AssertionFailure()
                << testing::PrintToString(one) << " and " << testing::PrintToString(other);
    }
    return testing::AssertionSuccess();
}

}

TEST_F(KXFFmpegMovieLoader, ShowsTheFrameOfATime)
{
    auto const movie = opened(Movie { .frames = { redFrame, greenFrame, blueFrame } }.file());
    ASSERT_TRUE(movie);
    EXPECT_DOUBLE_EQ(movie->duration(), 0.3);
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0, {}), *solid(16, 8, red)));
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0.2, {}), *solid(16, 8, blue)));
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0.19, {}), *solid(16, 8, green)));
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0, {}), *solid(16, 8, red))); // Backwards as well.
}

TEST_F(KXFFmpegMovieLoader, HasNoFrameAfterTheEnd)
{
    auto const movie = opened(Movie { .frames = { redFrame, greenFrame } }.file());
    ASSERT_TRUE(movie);
    EXPECT_TRUE(movie->imageAtTime(0.2, {}));
    EXPECT_FALSE(movie->imageAtTime(0.4, {}));
    EXPECT_FALSE(movie->imageAtTime(1e300, {}));
    EXPECT_FALSE(movie->imageAtTime(std::numeric_limits<double>::quiet_NaN(), {}));
    EXPECT_TRUE(areEqual(*movie->imageAtTime(-1, {}), *solid(16, 8, red)));
}

TEST_F(KXFFmpegMovieLoader, StopsAtTheKeyFrameBeforeATime)
{
    Movie const made { .frames = { redFrame, greenFrame, blueFrame }, .keyFrames = { 1, 3 } };
    auto const movie = opened(made.file());
    ASSERT_TRUE(movie);
    EXPECT_TRUE(areEqual(*movie->keyImageAtTime(0.15, {}), *solid(16, 8, red)));
    EXPECT_TRUE(areEqual(*movie->keyImageAtTime(0.25, {}), *solid(16, 8, blue)));
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0.15, {}), *solid(16, 8, green)));
}

TEST_F(KXFFmpegMovieLoader, PlaysAMovieWhoseHeaderComesLast)
{
    Movie const movie { .frames = { redFrame, greenFrame }, .isHeaderLast = true };
    EXPECT_TRUE(areEqual(*firstFrame(movie), *solid(16, 8, red)));
}

TEST_F(KXFFmpegMovieLoader, TurnsFramesUpright)
{
    Colour const darkRed { 128, 0, 0, 255 }, darkBlue { 0, 0, 128, 255 };
    struct Turn {
        std::array<std::int32_t, 4> matrix;
        std::array<Colour, 4> corners;
    };
    for (auto const& [matrix, corners] : {
             Turn { { 1, 0, 0, 1 }, { red, blue, darkRed, darkBlue } },
             Turn { { 0, 1, -1, 0 }, { darkRed, red, darkBlue, blue } }, // 90 degrees clockwise.
             Turn { { -1, 0, 0, -1 }, { darkBlue, darkRed, blue, red } },
             Turn { { 0, -1, 1, 0 }, { blue, darkBlue, red, darkRed } },
             Turn { { -1, 0, 0, 1 }, { blue, red, darkBlue, darkRed } }, // As in a mirror.
             Turn { { 0, 1, 1, 0 }, { red, darkRed, blue, darkBlue } },
         }) {
        auto const image = firstFrame({ .frames = { quarteredFrame() }, .matrix = matrix });
        ASSERT_TRUE(image);
        bool const isTransposed = matrix[0] == 0;
        EXPECT_EQ(image->size(), isTransposed ? (KXSize { 8, 16 }) : (KXSize { 16, 8 }));
        EXPECT_EQ(cornersOf(*image), corners);
    }
}

TEST_F(KXFFmpegMovieLoader, FitsATurnedFrameIntoTheMaximumSize)
{
    Movie const movie { .frames = { quarteredFrame() }, .matrix = { 0, 1, -1, 0 } };
    auto const open = opened(movie.file());
    ASSERT_TRUE(open);
    EXPECT_EQ(open->imageAtTime(0, { 8, 8 })->size(), (KXSize { 4, 8 }));
    EXPECT_EQ(open->imageAtTime(0, { 100, 100 })->size(), (KXSize { 8, 16 })); // Not enlarged.
    EXPECT_EQ(open->imageAtTime(0, { 3.9, 100 })->size(), (KXSize { 3, 7 }));
    EXPECT_EQ(open->imageAtTime(0, { 0.01, 100 })->size(), (KXSize { 1, 1 }));
}

TEST_F(KXFFmpegMovieLoader, StretchesPixelsThatAreNotSquare)
{
    Movie const movie { .frames = { redFrame }, .entryChildren = pixelAspect(2, 1) };
    EXPECT_EQ(firstFrame(movie)->size(), (KXSize { 32, 8 }));
    EXPECT_EQ(opened(movie.file())->imageAtTime(0, { 16, 16 })->size(), (KXSize { 16, 4 }));
}

TEST_F(KXFFmpegMovieLoader, BoundsWhatPixelsThatAreNotSquareMakeOfAFrame)
{
    // 160,000 by 8 points as told: both sides shrink together.
    Movie const wide { .frames = { redFrame }, .entryChildren = pixelAspect(10'000, 1) };
    EXPECT_EQ(firstFrame(wide)->size(), (KXSize { 32768, 1 }));
    Movie const high { .frames = { redFrame }, .entryChildren = pixelAspect(1, 10'000) };
    EXPECT_EQ(firstFrame(high)->size(), (KXSize { 1, 8 }));
}

TEST_F(KXFFmpegMovieLoader, TakesColoursByTheirStandard)
{
    // Pure green by BT.709 and by BT.601 (ITU-T H.273, 8.3).
    Movie const byBT709 { .codec = "2vuy",
        .frames = { solidUYVY(16, 8, 173, 42, 26) },
        .entryChildren = colours(1, 1, 1) };
    Movie const byBT601 { .codec = "2vuy",
        .frames = { solidUYVY(16, 8, 145, 54, 34) },
        .entryChildren = colours(6, 1, 6) };
    EXPECT_TRUE(areNear(firstColour(byBT709), green));
    EXPECT_TRUE(areNear(firstColour(byBT601), green));
}

TEST_F(KXFFmpegMovieLoader, GuessesTheStandardOfColoursBySize)
{
    auto const expectGreen = [this](
                                 std::uint32_t width, std::uint32_t height, auto const& frameOf) {
        std::uint32_t const stored = (width + 1) / 2 * 2; // Two pixels lie together.
        Movie const movie {
            .codec = "2vuy", .width = width, .height = height, .frames = { frameOf(stored, height) }
        };
        EXPECT_TRUE(areNear(firstColour(movie), green)) << width << " by " << height;
    };
    auto const byBT601
        = [](auto width, auto height) { return solidUYVY(width, height, 145, 54, 34); };
    auto const byBT709
        = [](auto width, auto height) { return solidUYVY(width, height, 173, 42, 26); };
    expectGreen(16, 8, byBT601);
    expectGreen(1279, 8, byBT601);
    expectGreen(16, 576, byBT601);
    expectGreen(16, 577, byBT709);
    expectGreen(1280, 8, byBT709);
}

TEST_F(KXFFmpegMovieLoader, PicturesOfTheFullRangeKeepTheirColours)
{
    Colour const orange { 220, 120, 40, 255 };
    auto const encoded = KXPlatform::platformOfThisMachine()->pictureLoader->jpgRepresentation(
        *solid(16, 16, orange));
    Movie const movie { .codec = "jpeg",
        .height = 16,
        .frames = { Bytes(encoded.bytes().begin(), encoded.bytes().end()) } };
    EXPECT_TRUE(areNear(firstColour(movie), orange, 4));
}

TEST_F(KXFFmpegMovieLoader, KeepsWhatIsTransparent)
{
    Bytes const halfRed = concatenated(std::vector<Bytes>(16 * 8, bytes({ 128, 255, 0, 0 })));
    Movie const movie { .depth = 32, .frames = { halfRed } };
    EXPECT_TRUE(areNear(firstColour(movie), { 128, 0, 0, 128 }, 0)); // Premultiplied.
}

TEST_F(KXFFmpegMovieLoader, PressesHighDynamicRangeIntoWhite)
{
    constexpr std::uint32_t bt2020 = 9, perceptual = 16, hybrid = 18;
    auto const brightness = [this](std::uint32_t transfer, std::uint32_t luma) {
        Colour const colour = firstColour({ .codec = "v210",
            .width = 48,
            .frames = { greyV210(8, luma) },
            .entryChildren = colours(bt2020, transfer, bt2020) });
        EXPECT_TRUE(areNear({ colour[0], colour[0], colour[0], 255 }, colour));
        return colour[0];
    };
    // Code values of white, 203 cd/m2 (ITU-R BT.2408, 2.1): 58 % of PQ, 75 % of HLG.
    constexpr std::uint32_t whiteOfPQ = 64 + 876 * 58 / 100, whiteOfHLG = 64 + 876 * 75 / 100;
    for (auto const& [transfer, white] :
        { std::pair(perceptual, whiteOfPQ), std::pair(hybrid, whiteOfHLG) }) {
        EXPECT_EQ(brightness(transfer, 64), 0);
        EXPECT_NEAR(brightness(transfer, white), 232, 3); // Leaves room for what is brighter.
        EXPECT_GT(brightness(transfer, 940), 250);
    }
    EXPECT_LT(brightness(hybrid, 300), brightness(hybrid, 400));
}

TEST_F(KXFFmpegMovieLoader, HighDynamicRangeStaysInItsPlace)
{
    constexpr std::uint32_t bt2020 = 9, perceptual = 16;
    Bytes const dark = greyV210(1, 64), bright = greyV210(1, 940);
    auto const half = static_cast<std::ptrdiff_t>(dark.size() / 2);
    Bytes const row = join(
        Bytes(dark.begin(), dark.begin() + half), Bytes(bright.begin() + half, bright.end()));
    auto const image = firstFrame({ .codec = "v210",
        .width = 48,
        .frames = { concatenated(std::vector(8, row)) },
        .entryChildren = colours(bt2020, perceptual, bt2020) });
    ASSERT_TRUE(image);
    for (std::size_t y = 0; y < 8; ++y) {
        for (std::size_t x = 0; x < 20; ++x) {
            EXPECT_EQ(pixel(*image, x, y), (Colour { 0, 0, 0, 255 }));
            EXPECT_TRUE(areNear(pixel(*image, 47 - x, y), white, 5));
        }
    }
}

TEST_F(KXFFmpegMovieLoader, TakesOutAnAttachedPicture)
{
    Bytes const picture = jpeg(300, 200, 400);
    // MPEG-1 layer III, 128 kbit/s, 44.1 kHz: 417 bytes a frame.
    Bytes const sound
        = concatenated(std::vector<Bytes>(20, join(bytes({ 0xFF, 0xFB, 0x90, 0x00 }), zeros(413))));
    for (Bytes const& file : {
             join(ftyp(),
                 atom("moov", atom("mvhd", zeros(100)), userDataWithTags(covr(13, picture)))),
             join(tag(ID3::v23, pictureFrame(ID3::v23, picture)), sound),
         }) {
        auto const movie = opened(file);
        ASSERT_TRUE(movie);
        auto const attached = movie->attachedPicture();
        EXPECT_EQ(Bytes(attached.bytes().begin(), attached.bytes().end()), picture);
        EXPECT_FALSE(movie->imageAtTime(0, {}));
        EXPECT_FALSE(movie->keyImageAtTime(0, {}));
    }
}

TEST_F(KXFFmpegMovieLoader, KnowsNothingOfOtherFiles)
{
    EXPECT_FALSE(opened({}));
    EXPECT_FALSE(opened(text("#EXTM3U\n#EXTINF:1,\nfile:///etc/passwd\n")));
    EXPECT_FALSE(opened(text("ffconcat version 1.0\nfile other.mov\n")));
    EXPECT_FALSE(opened(filled(100'000, 0)));
    EXPECT_FALSE(opened(gif(10, 10)));
}

TEST_F(KXFFmpegMovieLoader, OpensNoMovieThatIsCutBeforeItsHeader)
{
    Bytes const whole = Movie { .frames = { redFrame, greenFrame }, .isHeaderLast = true }.file();
    EXPECT_FALSE(opened(Bytes(whole.begin(), whole.begin() + 500)));
}

TEST_F(KXFFmpegMovieLoader, ShowsWhatIsThereOfAMovieThatIsCutOff)
{
    Bytes const whole = Movie { .frames = { redFrame, greenFrame, blueFrame } }.file();
    auto const partOfTheLast = static_cast<std::ptrdiff_t>(whole.size() - 10);
    auto const movie = opened(Bytes(whole.begin(), whole.begin() + partOfTheLast));
    ASSERT_TRUE(movie);
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0.1, {}), *solid(16, 8, green)));
    EXPECT_FALSE(movie->imageAtTime(0.25, {})); // Half a frame is none.
}

TEST_F(KXFFmpegMovieLoader, SurvivesEveryTruncation)
{
    Bytes const whole = Movie { .frames = { redFrame, greenFrame } }.file();
    std::size_t opens = 0, shows = 0;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        auto const movie
            = opened(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        opens += movie != nullptr;
        if (auto const image = movie ? movie->keyImageAtTime(0, {}) : nullptr) {
            ++shows;
            EXPECT_TRUE(areEqual(*image, *solid(16, 8, red)));
        }
    }
    EXPECT_EQ(shows, greenFrame.size() + 1); // From the end of the first frame on.
    EXPECT_GE(opens, shows);
}

TEST_F(KXFFmpegMovieLoader, RefusesFramesThatAreTooLarge)
{
    Movie const movie { .width = 32'000, .height = 32'000, .frames = { redFrame } };
    auto const open = opened(movie.file());
    EXPECT_FALSE(open && open->keyImageAtTime(0, { 100, 100 }));
}

TEST(KXFFmpegMovieLoaderDeathTest, NothingIsWrittenAboutDamagedMovies)
{
    // In a process of its own, which has not started the program yet.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const open = [] {
        Bytes const whole = Movie { .frames = { redFrame }, .isHeaderLast = true }.file();
        auto const data = reader(Bytes(whole.begin(), whole.begin() + 400));
        auto const movie = KXPlatform::platformOfThisMachine()->movieLoader->movieWithData(*data);
        ::_exit(movie ? 1 : 0);
    };
    EXPECT_EXIT(open(), testing::ExitedWithCode(0), "^$");
}
