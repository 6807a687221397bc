// Movies that are damaged or of rare kinds.

#include "support/MovieTest.h"

#include <gmock/gmock.h>

using namespace build;
using namespace movies;
using namespace pictures;

namespace {

class KXFFmpegMovieFailure : public MovieTest { };

/// A picture of MPEG-1 of 16 by 32 pixels of grey (ISO/IEC 11172-2, 2.4.2), or its upper half
/// alone.
Bytes greyMPEG(bool isWhole)
{
    Bytes const start = join(u32(0x1B3), u24(0x010020), u8(0x13), u32(8 << 14 | 1 << 13 | 20 << 3),
        u32(0x1B8), u32(0x00080040), u32(0x100), u32(0x000FFFF8));
    Bytes const slice = bytes({ 0x0B, 0x94, 0xA5, 0x22, 0x20 });
    return join(start, u32(0x101), slice, isWhole ? join(u32(0x102), slice) : Bytes());
}

/// A movie of `damaged` pictures that end in the middle, and then a whole one.
Bytes movieWithDamage(std::size_t damaged)
{
    std::vector<Bytes> frames(damaged, greyMPEG(false));
    frames.push_back(greyMPEG(true));
    return Movie { .codec = "m1v1", .width = 16, .height = 32, .frames = frames }.file();
}

/// A chunk of RoQ, a format that has neither an index nor times.
Bytes roqChunk(int type, int argument, Bytes const& content)
{
    return join(bytes({ type & 0xFF, type >> 8, static_cast<int>(content.size()), 0, 0, 0,
                    argument & 0xFF, argument >> 8 }),
        content);
}

}

TEST_F(KXFFmpegMovieFailure, HalfDecodedFramesArePassedOver)
{
    auto const time = [](std::size_t frame) { return static_cast<double>(frame) / 10; };
    for (std::size_t const damaged : { 0u, 1u, 7u }) {
        auto const movie = opened(movieWithDamage(damaged));
        ASSERT_TRUE(movie);
        EXPECT_TRUE(movie->imageAtTime(0, {})) << damaged;
        EXPECT_TRUE(movie->keyImageAtTime(0, {})) << damaged;
        EXPECT_TRUE(movie->keyImageAtTime(time(damaged), {})) << damaged;
    }
    auto const movie = opened(movieWithDamage(8));
    ASSERT_TRUE(movie);
    EXPECT_FALSE(movie->imageAtTime(0, {}));
    EXPECT_FALSE(movie->keyImageAtTime(0, {}));
    EXPECT_TRUE(movie->keyImageAtTime(time(8), {}));
}

TEST_F(KXFFmpegMovieFailure, MovieOfACodecThatNobodyKnowsHasNoFrames)
{
    for (auto const& [codec, depth] : { std::pair("zzzz", 24u), { "rle ", 5u } }) {
        auto const movie = opened(
            Movie { .codec = codec, .depth = depth, .frames = { redFrame, greenFrame } }.file());
        for (int i = 0; movie && i < 2; ++i) {
            EXPECT_FALSE(movie->keyImageAtTime(0, {}));
            EXPECT_FALSE(movie->imageAtTime(0, {}));
        }
    }
}

TEST_F(KXFFmpegMovieFailure, MovieWithoutAnyPlacesHasAPictureForItsStartOnly)
{
    Bytes file = join(
        roqChunk(0x1084, 30, Bytes()), roqChunk(0x1001, 0, bytes({ 16, 0, 16, 0, 8, 0, 4, 0 })));
    file[2] = file[3] = file[4] = file[5] = 0xFF;
    for (int i = 0; i < 1'100; ++i) { // FFmpeg passes over a thousand in search of a key frame.
        // One colour, one cell of it, and four blocks of that.
        file = join(file, roqChunk(0x1002, 0x101, bytes({ 90, 90, 90, 90, 128, 128, 0, 0, 0, 0 })),
            roqChunk(0x1011, 0, bytes({ 0xAA, 0xAA, 0, 0, 0, 0 })));
    }
    auto const movie = opened(file);
    ASSERT_TRUE(movie);
    EXPECT_TRUE(movie->keyImageAtTime(0, {}));
    EXPECT_TRUE(movie->imageAtTime(0, {}));
    EXPECT_FALSE(movie->keyImageAtTime(0.5, {}));
    EXPECT_FALSE(movie->imageAtTime(0.5, {}));
}
