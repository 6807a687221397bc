// What is chosen of a movie: its track, its packets and its frames.

#include "support/MovieTest.h"
#include "support/RecordingData.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <tuple>

using namespace build;
using namespace movies;
using namespace pictures;

namespace {

class KXFFmpegMovie : public MovieTest { };

/// A reader over bytes whose first read takes its time.
class SlowData final : public KXAbstractData {
public:
    SlowData(Bytes bytes, std::chrono::milliseconds pause)
        : _bytes(std::move(bytes))
        , _pause(pause)
    {
    }
    std::uint64_t length() const override { return _bytes.size(); }

private:
    std::uint8_t const* bytesAt(std::uint64_t, std::size_t) override { return nullptr; }
    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        std::this_thread::sleep_for(std::exchange(_pause, {}));
        std::copy_n(_bytes.data() + position, count, target);
        return count;
    }

    Bytes const _bytes;
    std::chrono::milliseconds _pause;
};

/// Much more than is read at once.
Movie const largeMovie {
    .width = 160,
    .height = 120,
    .frames = { solidRGB(160, 120, { 255, 0, 0 }), solidRGB(160, 120, { 0, 255, 0 }),
        solidRGB(160, 120, { 0, 0, 255 }) },
    .isHeaderLast = true,
};

}

TEST_F(KXFFmpegMovie, JumpsWithinAMovieThatIsLargerThanItsBuffer)
{
    auto const movie = opened(largeMovie.file());
    ASSERT_TRUE(movie);
    for (auto const& [seconds, colour] : { std::pair(0.2, blue), { 0.0, red }, { 0.1, green } }) {
        EXPECT_TRUE(areEqual(*movie->keyImageAtTime(seconds, {}), *solid(160, 120, colour)));
        EXPECT_TRUE(areEqual(*movie->imageAtTime(seconds, {}), *solid(160, 120, colour)));
    }
}

TEST_F(KXFFmpegMovie, OpeningDecodesNothing)
{
    Movie movie = largeMovie;
    movie.isHeaderLast = false;
    RecordingData data(movie.file());
    ASSERT_TRUE(loader->movieWithData(data));
    std::uint64_t count = 0;
    for (auto const& read : data.reads())
        count += read.count;
    EXPECT_LE(count, 64u * 1024);
}

TEST_F(KXFFmpegMovie, PlaysTheFirstEnabledTrackOrElseTheFirst)
{
    for (auto const& [isFirstEnabled, isSecondEnabled, colour] : { std::tuple(true, true, red),
             { true, false, red }, { false, true, green }, { false, false, red } }) {
        Movie const movie { .frames = { redFrame },
            .isEnabled = isFirstEnabled,
            .otherTracks = { { .frames = { greenFrame }, .isEnabled = isSecondEnabled } } };
        EXPECT_EQ(firstColour(movie), colour) << isFirstEnabled << isSecondEnabled;
    }
}

TEST_F(KXFFmpegMovie, SoundAndCoverInFrontAreNotPlayed)
{
    for (Bytes const& front : { track("soun", stsd(soundEntry("sowt"))),
             userDataWithTags(covr(13, jpeg(300, 200, 400))) }) {
        Movie const movie { .frames = { redFrame }, .atomsInFront = front, .isEnabled = false };
        EXPECT_EQ(firstColour(movie), red);
    }
}

TEST_F(KXFFmpegMovie, CountsTimeFromTheStartOfTheTrack)
{
    // Nothing for three frames, and then the track from its start (ISO/IEC 14496-12, 8.6.6).
    Bytes const edits = atom("elst", u32(0), u32(2), u32(3), u32(0xFFFFFFFF), u32(0x10000), u32(3),
        u32(0), u32(0x10000));
    Movie const made { .frames = { redFrame, greenFrame, blueFrame },
        .trackChildren = atom("edts", edits) };
    auto const movie = opened(made.file());
    ASSERT_TRUE(movie);
    for (auto const& [seconds, colour] : { std::pair(0.2, blue), { 0.0, red }, { 0.1, green } }) {
        EXPECT_TRUE(areEqual(*movie->keyImageAtTime(seconds, {}), *solid(16, 8, colour)));
        EXPECT_TRUE(areEqual(*movie->imageAtTime(seconds, {}), *solid(16, 8, colour)));
    }
}

TEST_F(KXFFmpegMovie, PassesOverDamagedFrames)
{
    auto const movie = opened(Movie { .frames = { redFrame, zeros(10), blueFrame } }.file());
    ASSERT_TRUE(movie);
    EXPECT_TRUE(areEqual(*movie->keyImageAtTime(0.1, {}), *solid(16, 8, blue)));
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0.1, {}), *solid(16, 8, blue)));
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0.05, {}), *solid(16, 8, red)));
}

TEST_F(KXFFmpegMovie, ShowsNothingThatIsEncrypted)
{
    // ISO/IEC 23001-7: every frame whole, by one key and initialization vector.
    Bytes const scheme = atom("schm", u32(0), text("cbcs"), u32(0x10000));
    Bytes const key = atom("tenc", bytes({ 1, 0, 0, 0, 0, 0, 1, 0 }), zeros(16), u8(16), zeros(16));
    Movie const movie { .codec = "encv",
        .frames = { redFrame, greenFrame },
        .entryChildren = atom("sinf", atom("frma", text("raw ")), scheme, atom("schi", key)),
        .userData = atom("senc", u32(0), u32(0)) };
    auto const open = opened(movie.file());
    ASSERT_TRUE(open);
    EXPECT_FALSE(open->keyImageAtTime(0, {}));
    EXPECT_FALSE(open->imageAtTime(0, {}));
}

TEST_F(KXFFmpegMovie, HalfAPictureIsNoFrame)
{
    auto const encoded = KXPlatform::platformOfThisMachine()->pictureLoader->jpgRepresentation(
        *photograph(64, 64));
    Bytes const picture(encoded.bytes().begin(), encoded.bytes().end());
    Bytes file = Movie { .codec = "jpeg", .width = 64, .height = 64, .frames = { picture } }.file();
    EXPECT_TRUE(opened(file)->keyImageAtTime(0, {}));
    file.resize(file.size() - picture.size() / 4);
    EXPECT_FALSE(opened(file)->keyImageAtTime(0, {}));
    EXPECT_FALSE(opened(file)->imageAtTime(0, {}));
}

TEST_F(KXFFmpegMovie, WaitsEightSecondsForAReader)
{
    using namespace std::chrono_literals;
    // At the same time.
    std::jthread const patient([this] {
        SlowData data(largeMovie.file(), 7'300ms);
        EXPECT_TRUE(loader->movieWithData(data));
    });
    std::jthread const gone([this] {
        SlowData data(largeMovie.file(), 8'500ms);
        EXPECT_FALSE(loader->movieWithData(data));
    });
    auto const movie = opened(largeMovie.file());
    ASSERT_TRUE(movie);
    std::this_thread::sleep_for(8'500ms);
    EXPECT_TRUE(movie->keyImageAtTime(0, {})); // Each operation has its own time.
}
