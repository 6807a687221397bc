// How little of a file the decoder of movies reads. It runs right here, so that its reads can be
// seen.

#include "kxmd/platform/linux/ffmpeg/KXFFmpegMoviePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegProbePrivate.h"

#include "support/Builders.h"
#include "support/Movies.h"
#include "support/Pictures.h"
#include "support/RecordingData.h"

#include <gtest/gtest.h>

using namespace build;
using namespace movies;
using namespace pictures;

namespace {

/// Much more than is read at once.
Movie const largeMovie {
    .width = 160,
    .height = 120,
    .frames = { solidRGB(160, 120, { 255, 0, 0 }), solidRGB(160, 120, { 0, 255, 0 }),
        solidRGB(160, 120, { 0, 0, 255 }) },
};

}

TEST(KXFFmpegMovieReading, OpeningDecodesNothing)
{
    RecordingData data(largeMovie.file());
    ASSERT_TRUE(KXFFmpegMovie::movieWithData(data));
    std::uint64_t count = 0;
    for (auto const& read : data.reads())
        count += read.count;
    EXPECT_LE(count, 32u * 1024); // Less than the first frame.
}

TEST(KXFFmpegMovieReading, OpeningDecodesNothingHoweverNarrowTheFrames)
{
    Movie const made { .width = 1, .height = 30'000, .frames = { zeros(4 * 30'000) } };
    RecordingData data(made.file());
    ASSERT_TRUE(KXFFmpegMovie::movieWithData(data));
    EXPECT_LE(data.reads().size(), 2u);
}

TEST(KXFFmpegMovieReading, FramesOfOtherTracksAreNotRead)
{
    Movie made = largeMovie;
    std::uint64_t const before = made.file().size();
    made.otherTracks = { made };
    RecordingData data(made.file());
    auto const movie = KXFFmpegMovie::movieWithData(data);
    ASSERT_TRUE(movie);
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0.1, {}), *solid(160, 120, green)));
    for (auto const& read : data.reads())
        EXPECT_LT(read.position, before);
}

TEST(KXFFmpegMovieReading, ProbeLooksAtTheFileFromItsStart)
{
    auto const data = reader(largeMovie.file());
    data->setOffset(5);
    auto const probe = mediaProbeByFFmpeg(*data);
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->container, "mov");
    EXPECT_FALSE(mediaProbeByFFmpeg(*reader(text("Dear diary"))));
}
