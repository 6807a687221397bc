// What is chosen of a movie: its track, its packets and its frames.

#include "support/Exif.h"
#include "support/MovieTest.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>
#include <tuple>

using namespace build;
using namespace movies;
using namespace pictures;

namespace {

class KXFFmpegMovie : public MovieTest { };

/// A reader over bytes whose next read takes its time.
class SlowData final : public KXAbstractData {
public:
    SlowData(Bytes bytes, std::chrono::milliseconds pause)
        : _bytes(std::move(bytes))
        , _pause(pause)
    {
    }
    void setPause(std::chrono::milliseconds pause) { _pause = pause; }
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

// One H.264 picture, 64 by 32 pixels: squares of two greys, each of one block, so coarse that the
// edges between them are smoothed over three pixels to either side.
Bytes const sequenceParameters = bytes({ 0x67, 0x4D, 0x40, 0x0A, 0xEC, 0xA2, 0x2D, 0x08, 0x00, 0x00,
    0x03, 0x00, 0x08, 0x00, 0x00, 0x03, 0x01, 0x90, 0x78, 0x91, 0x2C, 0xB0 });
Bytes const pictureParameters = bytes({ 0x68, 0xCB, 0xE0, 0x51, 0xC8 });
Bytes const slice = bytes(
    { 0x65, 0x88, 0x84, 0x00, 0xF1, 0x83, 0x09, 0x8B, 0x93, 0x14, 0x06, 0x4C, 0x50, 0x32, 0x62,
        0x80, 0xD6, 0x28, 0x0D, 0x62, 0x80, 0xD6, 0x28, 0x1A, 0xC5, 0x01, 0xAC, 0x50, 0x38, 0x00 });

Movie smoothedSquares()
{
    auto const withLength = [](Bytes const& unit) {
        return join(u16(static_cast<std::uint16_t>(unit.size())), unit);
    };
    Bytes const record = join(bytes({ 0x01, 0x4D, 0x40, 0x0A, 0xFF, 0xE1 }),
        withLength(sequenceParameters), u8(1), withLength(pictureParameters));
    return { .codec = "avc1",
        .width = 64,
        .height = 32,
        .frames = { join(u32(static_cast<std::uint32_t>(slice.size())), slice) },
        .entryChildren = atom("avcC", record) };
}

// Video of MPEG-1 (ISO/IEC 11172-2, 2.4.2): grey, 16 by 16 pixels, 25 pictures a second.

/// The sequence header, with 400 bytes a second, and that of a group of pictures.
Bytes const greyStart = join(u32(0x1B3), u24(0x010010), u8(0x13), u32(8 << 14 | 1 << 13 | 20 << 3),
    u32(0x1B8), u32(0x00080040));
/// A picture that needs no other, with a slice of one block whose coefficients are all 0.
Bytes const greyPicture
    = join(u32(0x100), u32(0x000FFFF8), u32(0x101), bytes({ 0x0B, 0x94, 0xA5, 0x22, 0x20 }));

/// A pack of a program stream with one packet (ISO/IEC 11172-1, 2.4.3).
Bytes pack(std::uint32_t number, Bytes const& content)
{
    std::uint32_t const ticks = number * 90'000 / 25;
    Bytes const time = join(u8(0x21), u16(ticks >> 15 << 1 | 1), u16((ticks & 0x7FFF) << 1 | 1));
    auto const length = static_cast<std::uint32_t>(time.size() + content.size());
    return join(u32(0x1BA), time, u24(0x800003), u32(0x1E0), u16(length), time, content);
}

/// A frame of Apple's run lengths, 16 by 8 pixels of one colour, as it is in a movie.
Bytes runsOf(std::array<int, 3> const& colour)
{
    Bytes const row = bytes({ 1, -16 & 0xFF, colour[0], colour[1], colour[2], -1 & 0xFF });
    Bytes const rows = concatenated(std::vector(8, row));
    return join(u32(static_cast<std::uint32_t>(rows.size() + 7)), u16(0), rows, u8(0));
}

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

TEST_F(KXFFmpegMovie, ReaderMayStandAnywhere)
{
    auto const data = reader(largeMovie.file());
    data->setOffset(5);
    EXPECT_TRUE(loader->movieWithData(*data));
}

TEST_F(KXFFmpegMovie, PlaysVideoWithoutAContainer)
{
    Bytes const startCode = u32(1);
    auto const squares = opened(
        join(startCode, sequenceParameters, startCode, pictureParameters, startCode, slice));
    ASSERT_TRUE(squares);
    EXPECT_TRUE(areEqual(*squares->imageAtTime(0, {}), *firstFrame(smoothedSquares())));

    // Of YUV4MPEG2: white, then black.
    Bytes const colours = filled(2 * 8 * 8, 128);
    auto const greys = opened(join(text("YUV4MPEG2 W16 H16 F25:1 C420\nFRAME\n"),
        filled(16 * 16, 235), colours, text("FRAME\n"), filled(16 * 16, 16), colours));
    ASSERT_TRUE(greys);
    EXPECT_TRUE(areEqual(*greys->imageAtTime(0, {}), *solid(16, 16, white)));
    EXPECT_TRUE(areEqual(*greys->imageAtTime(0.05, {}), *solid(16, 16, { 0, 0, 0, 255 })));
}

TEST_F(KXFFmpegMovie, FrameHasUpToSixtyFourMebipixels)
{
    for (std::uint32_t const height : { 8'192u, 8'193u }) {
        // A frame that leaves everything as it is but a few pixels.
        Bytes const frame = join(
            u32(21), u16(8), u16(0), u16(0), u16(1), u16(0), bytes({ 1, -1 & 0xFF, 0, 0, 0 }));
        auto const movie = opened(Movie { .codec = "rle ",
            .width = 8'192,
            .height = height,
            .frames = { frame } }.file());
        ASSERT_TRUE(movie);
        EXPECT_EQ(movie->keyImageAtTime(0, { 16, 16 }) != nullptr, height == 8'192) << height;
    }
}

TEST_F(KXFFmpegMovie, TimeIsLessThanABillionSeconds)
{
    auto const movie = opened(Movie { .frames = { redFrame, greenFrame } }.file());
    ASSERT_TRUE(movie);
    for (double const seconds : { 1e9, 1e9 + 0.5 })
        EXPECT_FALSE(movie->keyImageAtTime(seconds, {})) << seconds;
    auto const last = movie->keyImageAtTime(1e9 - 0.5, {});
    ASSERT_TRUE(last);
    EXPECT_TRUE(areEqual(*last, *solid(16, 8, green)));
}

TEST_F(KXFFmpegMovie, TurnsFramesThatSayHow)
{
    auto const encoded
        = KXPlatform::platformOfThisMachine()->pictureLoader->jpgRepresentation(*solid(16, 8, red));
    Bytes const block = exif(tiff(TIFF::MM, directory(TIFF::MM, { orientation(TIFF::MM, 6) })));
    auto const image = firstFrame({ .codec = "jpeg",
        .frames = { withSegment(Bytes(encoded.bytes().begin(), encoded.bytes().end()), block) } });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 8, 16 }));
}

TEST_F(KXFFmpegMovie, EdgesBetweenBlocksAreLeftInPicturesOfAQuarterAtMost)
{
    auto const movie = opened(smoothedSquares().file());
    ASSERT_TRUE(movie);
    auto const smooth = movie->imageAtTime(0, { 16, 16 });
    ASSERT_TRUE(smooth);
    EXPECT_EQ(smooth->size(), (KXSize { 16, 8 }));
    for (KXSize const size : { KXSize { 16, 16 }, { 16, 1'000 }, { 1'000, 8 } }) {
        auto const quick = movie->keyImageAtTime(0, size);
        ASSERT_TRUE(quick);
        EXPECT_EQ(quick->size(), smooth->size());
        EXPECT_GT(pixel(*quick, 3, 1)[0], pixel(*smooth, 3, 1)[0] + 2); // Beside an edge.
        // What follows is decoded in full again.
        EXPECT_TRUE(areEqual(*movie->imageAtTime(0, { 16, 16 }), *smooth));
    }
    for (KXSize const size : { KXSize { 16.2, 16.2 }, { 16.2, 1'000 }, { 1'000, 8.1 } })
        EXPECT_TRUE(areEqual(*movie->keyImageAtTime(0, size), *smooth)) << size.width;
    auto const whole = movie->imageAtTime(0, {});
    for (KXSize const size : { KXSize {}, { 0, 1 }, { 1, 0 }, { -1, 8 } })
        EXPECT_TRUE(areEqual(*movie->keyImageAtTime(0, size), *whole)) << size.width;
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

TEST_F(KXFFmpegMovie, HasUpTo256Tracks)
{
    Movie movie { .frames = { redFrame } };
    movie.otherTracks.assign(255, { .frames = { greenFrame } });
    EXPECT_TRUE(opened(movie.file()));
    movie.otherTracks.push_back(movie.otherTracks.front());
    EXPECT_FALSE(opened(movie.file()));
}

TEST_F(KXFFmpegMovie, SoundAndCoverInFrontAreNotPlayed)
{
    for (Bytes const& front : { track("soun", stsd(soundEntry("sowt"))),
             userDataWithTags(covr(13, jpeg(300, 200, 400))) }) {
        Movie const movie { .frames = { redFrame }, .atomsInFront = front, .isEnabled = false };
        EXPECT_EQ(firstColour(movie), red);
    }
}

TEST_F(KXFFmpegMovie, DurationThatNobodyKnowsIsNone)
{
    auto const movie = opened(join(ftyp(),
        atom("moov", atom("mvhd", zeros(100)), userDataWithTags(covr(13, jpeg(30, 20, 400))))));
    ASSERT_TRUE(movie);
    EXPECT_EQ(movie->duration(), 0);
}

TEST_F(KXFFmpegMovie, CountsTimeFromTheStartOfTheTrack)
{
    // Nothing for three frames, and then the track from its start (ISO/IEC 14496-12, 8.6.6).
    Bytes const edits = atom("elst", u32(0), u32(2), u32(3), u32(0xFFFFFFFF), u32(0x10000), u32(3),
        u32(0), u32(0x10000));
    for (bool const isOnlyFirstKey : { false, true }) {
        Movie const made { .frames = { redFrame, greenFrame, blueFrame },
            .keyFrames = isOnlyFirstKey ? std::vector { 1u } : std::vector { 1u, 2u, 3u },
            .trackChildren = atom("edts", edits) };
        auto const movie = opened(made.file());
        ASSERT_TRUE(movie);
        for (auto const& [seconds, colour] :
            { std::pair(0.2, blue), { 0.0, red }, { 0.1, green } }) {
            EXPECT_TRUE(areEqual(
                *movie->keyImageAtTime(seconds, {}), *solid(16, 8, isOnlyFirstKey ? red : colour)));
            EXPECT_TRUE(areEqual(*movie->imageAtTime(seconds, {}), *solid(16, 8, colour)));
        }
    }
}

TEST_F(KXFFmpegMovie, ShowsTheFirstKeyFrameWhenNoneComesEarlier)
{
    auto const movie = opened(
        Movie { .frames = { redFrame, greenFrame, blueFrame }, .keyFrames = { 2 } }.file());
    ASSERT_TRUE(movie);
    EXPECT_TRUE(areEqual(*movie->keyImageAtTime(0, {}), *solid(16, 8, green)));
    EXPECT_TRUE(areEqual(*movie->imageAtTime(0, {}), *solid(16, 8, green)));
}

TEST_F(KXFFmpegMovie, LooksIntoStreamsThatHaveNoHeader)
{
    Bytes stream, packs;
    for (std::uint32_t i = 0; i < 25; ++i) {
        Bytes const picture = join(i ? Bytes() : greyStart, greyPicture);
        stream = join(stream, picture);
        packs = join(packs, pack(i, picture));
    }
    for (Bytes const& file : { stream, packs }) {
        auto const movie = opened(file);
        ASSERT_TRUE(movie);
        EXPECT_GT(movie->duration(), 0);
        auto const image = movie->keyImageAtTime(0, {});
        ASSERT_TRUE(image);
        EXPECT_EQ(image->size(), (KXSize { 16, 16 }));
        EXPECT_EQ(countOf(*image, pixel(*image, 0, 0)), 256u);
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

TEST_F(KXFFmpegMovie, AfterEightDamagedKeyFramesAnyFrameWillDo)
{
    for (auto const& [count, colour] : { std::pair(7u, blue), { 8u, green } }) {
        // After them a frame that is no key frame, and one that is.
        std::vector<Bytes> frames(count, u32(4));
        frames.insert(frames.end(), { runsOf({ 0, 255, 0 }), runsOf({ 0, 0, 255 }) });
        std::vector<std::uint32_t> keys { count + 2 };
        for (std::uint32_t number = count; number > 0; --number)
            keys.insert(keys.begin(), number);
        auto const movie
            = opened(Movie { .codec = "rle ", .frames = frames, .keyFrames = keys }.file());
        ASSERT_TRUE(movie);
        EXPECT_TRUE(areEqual(*movie->keyImageAtTime(0, {}), *solid(16, 8, colour))) << count;
    }
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
    file.erase(file.end() - static_cast<std::ptrdiff_t>(picture.size() / 4), file.end());
    EXPECT_FALSE(opened(file)->keyImageAtTime(0, {}));
    EXPECT_FALSE(opened(file)->imageAtTime(0, {}));
}
