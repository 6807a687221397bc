#include "kxmd/thumbnails/KXMDQTParser.h"

#include "support/LogCapture.h"
#include "support/Movies.h"
#include "support/Pictures.h"

#include <gmock/gmock.h>

using namespace build;
using namespace movies;
using namespace pictures;

namespace {

constexpr std::size_t mostRead = 1'572'864;

Bytes const redFrame = solidRGB(16, 8, { 255, 0, 0 });
Bytes const greenFrame = solidRGB(16, 8, { 0, 255, 0 });
Bytes const blueFrame = solidRGB(16, 8, { 0, 0, 255 });

/// The picture that is made of a movie as this machine plays it; null when there is none.
KXImage::Ref posterOf(Bytes file)
{
    KXMDQTParser parser;
    bool const isFound = parser.parseAbstractData(*reader(std::move(file)));
    EXPECT_EQ(isFound, parser.thumbnail() != nullptr);
    return parser.thumbnail();
}

bool isSolid(KXImage::Ref const& image, Colour colour)
{
    return image && countOf(*image, colour) == image->pixelWidth() * image->pixelHeight();
}

}

TEST(KXMDQTParserOfMovies, PosterFrameIsShownInTheMoviesSize)
{
    Movie movie { .frames = { redFrame, greenFrame, blueFrame }, .posterTime = 2 };
    auto const image = posterOf(movie.file());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 16, 8 }));
    EXPECT_TRUE(isSolid(image, blue));
    movie.posterTime = 1;
    EXPECT_TRUE(isSolid(posterOf(movie.file()), green));
}

TEST(KXMDQTParserOfMovies, FirstFrameIsShownWithoutAPosterFrame)
{
    EXPECT_TRUE(isSolid(posterOf(Movie { .frames = { redFrame, greenFrame } }.file()), red));
    Movie const afterTheEnd { .frames = { redFrame, greenFrame }, .posterTime = 1000 };
    EXPECT_TRUE(isSolid(posterOf(afterTheEnd.file()), red));
}

TEST(KXMDQTParserOfMovies, HeaderMayComeLastInAShortFile)
{
    Movie const movie { .frames = { redFrame, greenFrame }, .posterTime = 1, .isHeaderLast = true };
    EXPECT_TRUE(isSolid(posterOf(movie.file()), green));
}

TEST(KXMDQTParserOfMovies, HeaderMustLieWithinTheFirstAttempt)
{
    // After the first half of a mebibyte the first attempt is an error, which is not forgotten.
    std::vector<Bytes> const frames(2000, redFrame);
    Movie const movie { .frames = frames, .isHeaderLast = true };
    Bytes const file = movie.file();
    ASSERT_GT(file.size(), 524'288u);
    ASSERT_LT(file.size(), mostRead);
    EXPECT_FALSE(posterOf(file));
}

TEST(KXMDQTParserOfMovies, StartOfALongFileIsEnough)
{
    constexpr std::size_t frameCount = 10'000;
    std::vector<Bytes> frames(frameCount, redFrame);
    frames.back() = blueFrame;
    Movie movie { .frames = std::move(frames) };
    Bytes const file = movie.file();
    ASSERT_GT(file.size(), mostRead);
    EXPECT_TRUE(isSolid(posterOf(file), red));
    EXPECT_TRUE(isSolid(posterOf(Bytes(file.begin(), file.begin() + mostRead)), red));
    // A poster frame that was not read is none.
    movie.posterTime = frameCount - 1;
    EXPECT_TRUE(isSolid(posterOf(movie.file()), red));
}

TEST(KXMDQTParserOfMovies, WhatIsNoMovieHasNone)
{
    LogCapture const log;
    auto const loader = KXPlatform::platformOfThisMachine()->pictureLoader;
    auto const jpeg = loader->jpgRepresentation(*quarters(32, 16));
    EXPECT_FALSE(posterOf({}));
    EXPECT_FALSE(posterOf(text("no movie")));
    EXPECT_FALSE(posterOf(filled(3'000'000, 0xFF)));
    EXPECT_FALSE(posterOf(join(ftyp(), atom("moov", atom("mvhd", zeros(100))))));
    EXPECT_FALSE(posterOf(Bytes(jpeg.bytes().begin(), jpeg.bytes().end())));
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST(KXMDQTParserOfMovies, EveryTruncationIsSurvived)
{
    LogCapture const log; // Of the atom tree, at some cuts.
    Bytes const whole
        = Movie { .frames = { redFrame, greenFrame, blueFrame }, .posterTime = 2 }.file();
    // Within pixels one place to cut is like the next, and each movie takes a process.
    std::size_t const pixels = whole.size() - 3 * redFrame.size();
    for (std::size_t length = 0; length < whole.size(); length += length < pixels ? 1 : 7) {
        auto const image
            = posterOf(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_TRUE(!image || image->size() == (KXSize { 16, 8 })) << length;
    }
    EXPECT_TRUE(isSolid(posterOf(whole), blue));
}
