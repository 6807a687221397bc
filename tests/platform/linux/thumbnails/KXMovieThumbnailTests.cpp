#include "kxmd/platform/linux/thumbnails/KXMovieThumbnailPrivate.h"

#include "support/Builders.h"
#include "support/Fakes.h"
#include "support/Pictures.h"

#include <gmock/gmock.h>

#include <limits>
#include <map>

using namespace pictures;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A movie with some frames, which are shown from their time on.
class FakeMovie final : public KXMovie {
public:
    double duration() const override { return length; }
    KXImage::Ref imageAtTime(double, KXSize) override { return nullptr; }
    KXImage::Ref keyImageAtTime(double seconds, KXSize) override
    {
        asked.push_back(seconds);
        auto const next = frames.upper_bound(seconds);
        return next == frames.begin() ? nullptr : std::prev(next)->second;
    }
    KXData attachedPicture() const override { return KXData(cover); }

    double length { 0 };
    std::map<double, KXImage::Ref> frames;
    build::Bytes cover;
    std::vector<double> asked;
};

class KXMovieThumbnail : public testing::Test {
protected:
    KXImage::Ref thumbnail() { return thumbnailOfMovie(movie, *loader, { 50, 50 }); }

    FakeMovie movie;
    std::shared_ptr<KXPictureLoader const> const loader
        = KXPlatform::platformOfThisMachine()->pictureLoader;
    KXImage::Ref const black = solid(8, 8, { 0, 0, 0, 255 });
};

}

TEST_F(KXMovieThumbnail, IsAFrameATenthIn)
{
    movie.length = 100;
    movie.frames = { { 0, black }, { 9, quarters(8, 8) }, { 50, gradient(8, 8) } };
    EXPECT_EQ(thumbnail(), movie.frames[9]);
    EXPECT_THAT(movie.asked, ElementsAre(10));
}

TEST_F(KXMovieThumbnail, LiesWithinTheFirstHalfMinuteOfALongMovie)
{
    movie.length = 7'200;
    movie.frames = { { 0, quarters(8, 8) } };
    EXPECT_TRUE(thumbnail());
    EXPECT_THAT(movie.asked, ElementsAre(30));
}

TEST_F(KXMovieThumbnail, BlankFrameGivesWayToOneOfThePlot)
{
    movie.length = 90;
    movie.frames = { { 0, black }, { 20, gradient(64, 64) } };
    EXPECT_EQ(thumbnail(), movie.frames[20]);
    EXPECT_THAT(movie.asked, ElementsAre(9, 30));
}

TEST_F(KXMovieThumbnail, FrameIsBlankUpToAGrainOf24)
{
    for (std::size_t channel = 0; channel < KXImage::bytesPerPixel; ++channel) {
        for (int const grain : { 24, 25 }) {
            auto const grained = imageOf(8, 8, [&](std::size_t x, std::size_t y) {
                Colour colour { 100, 100, 100, 200 };
                if (x + y == 0)
                    colour[channel] = static_cast<std::uint8_t>(colour[channel] + grain);
                return colour;
            });
            movie.length = 90;
            movie.frames = { { 0, grained }, { 20, quarters(8, 8) } };
            EXPECT_EQ(thumbnail(), movie.frames[grain == 24 ? 20 : 0]) << channel << grain;
        }
    }
}

TEST_F(KXMovieThumbnail, BlankFrameIsBetterThanNone)
{
    movie.length = 90;
    movie.frames = { { 0, black } };
    EXPECT_EQ(thumbnail(), black);
    EXPECT_THAT(movie.asked, ElementsAre(9, 30, 0));
}

TEST_F(KXMovieThumbnail, FirstFrameServesWhenTheRestCannotBeDecoded)
{
    for (double const duration : { 0.0, -5.0, std::numeric_limits<double>::quiet_NaN(),
             std::numeric_limits<double>::infinity() }) {
        movie.length = duration;
        movie.frames = { { 0, quarters(8, 8) } };
        movie.asked.clear();
        EXPECT_EQ(thumbnail(), movie.frames[0]) << duration;
        EXPECT_THAT(movie.asked, ElementsAre(0)) << duration;
    }
}

TEST_F(KXMovieThumbnail, IsTheFrameOfAMovieThatHasACover)
{
    movie.frames = { { 0, quarters(8, 8) } };
    auto const cover = loader->pngRepresentation(*solid(9, 9, red));
    movie.cover.assign(cover.bytes().begin(), cover.bytes().end());
    EXPECT_EQ(thumbnail(), movie.frames[0]);
}

TEST_F(KXMovieThumbnail, IsTheCoverOfMusic)
{
    auto const cover = loader->pngRepresentation(*solid(9, 9, red));
    movie.cover.assign(cover.bytes().begin(), cover.bytes().end());
    auto const image = thumbnail();
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 4, 4), red);
}

TEST_F(KXMovieThumbnail, CoverMayBeAPictureOfARareKind)
{
    // WebP without losses, one pixel.
    movie.cover
        = build::bytes({ 'R', 'I', 'F', 'F', 0x1A, 0, 0, 0, 'W', 'E', 'B', 'P', 'V', 'P', '8', 'L',
            0x0D, 0, 0, 0, 0x2F, 0, 0, 0, 0x10, 0x07, 0x10, 0x11, 0x11, 0x88, 0x88, 0xFE, 7, 0 });
    auto const data = build::reader(movie.cover);
    if (!loader->imageInData(*data, data->length(), {}))
        GTEST_SKIP() << "no loader for WebP";
    auto const image = thumbnail();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 1, 1 }));
}

TEST_F(KXMovieThumbnail, CoverThatIsNoPictureIsNotShown)
{
    for (char const* bytes :
        { "", "a letter", "<svg xmlns='http://www.w3.org/2000/svg'/>", "RIFF....WEBPVP8 " }) {
        movie.cover = build::text(bytes);
        EXPECT_FALSE(thumbnail()) << bytes;
    }
}
