#include "kxmd/thumbnails/KXMDQTParser.h"

#include "support/Builders.h"
#include "support/Fakes.h"
#include "support/LogCapture.h"
#include "support/Pictures.h"
#include "support/RecordingData.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using namespace build;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr std::uint64_t step = 524'288;

/// A movie header's fields after the version, up to the poster time.
Bytes fieldsOfHeader(std::uint32_t timeScale, std::uint32_t posterTime)
{
    return join(zeros(3 + 4 + 4), u32(timeScale), u32(9000), u32(0x10000), u16(0x100), zeros(10),
        filled(36, 0xAA), u32(11), u32(12), u32(posterTime));
}

Bytes movieHeader(std::uint32_t timeScale, std::uint32_t posterTime)
{
    return atom("mvhd", u8(0), fieldsOfHeader(timeScale, posterTime), zeros(16));
}

/// A movie whose header is as given, with media after it.
Bytes movieWithHeader(Bytes const& header)
{
    return join(
        atom("ftyp", text("qt  "), zeros(4)), atom("moov", header), atom("mdat", zeros(100)));
}

class KXMDQTParserTest : public testing::Test {
protected:
    using Call = FakeMovieLoader::FrameCall;

    FakeMovieLoader& loader() const { return *machine.movieLoader; }

    bool parse(Bytes bytes) { return parser.parseAbstractData(*reader(std::move(bytes))); }

    /// When in seconds the frames were that a movie with this header was asked for.
    std::vector<double> timesAskedFor(Bytes const& header)
    {
        std::size_t const before = loader().frameCalls().size();
        EXPECT_FALSE(parse(movieWithHeader(header)));
        std::vector<double> times;
        auto const calls = loader().frameCalls();
        for (std::size_t i = before; i < calls.size(); ++i)
            times.push_back(calls[i].seconds);
        return times;
    }

    FakeMachine const machine;
    KXImage::Ref const picture = pictures::solid(3, 2, pictures::green);
    KXImage::Ref const earlier = pictures::solid(1, 1, pictures::red);
    KXMDQTParser parser { machine.platform() };
};

}

// How much is read.

TEST_F(KXMDQTParserTest, ShortFileIsReadOnce)
{
    RecordingData data(zeros(300'000));
    EXPECT_FALSE(parser.parseAbstractData(data));
    EXPECT_THAT(data.reads(), SizeIs(1));
    EXPECT_THAT(loader().lengths(), ElementsAre(300'000));
}

TEST_F(KXMDQTParserTest, LongFileIsTriedThreeTimesAndReadUpToOneAndAHalfMebibytes)
{
    RecordingData data(zeros(10'000'000)); // The movie's header would stand at its end.
    EXPECT_FALSE(parser.parseAbstractData(data));
    using Read = RecordingData::Read;
    EXPECT_THAT(
        data.reads(), ElementsAre(Read { 0, step }, Read { step, step }, Read { 2 * step, step }));
    EXPECT_THAT(loader().lengths(), ElementsAre(step, 2 * step, 3 * step));
}

TEST_F(KXMDQTParserTest, PictureOfTheFirstAttemptEndsTheWork)
{
    loader().setImageAtTime(picture, 0);
    RecordingData data(zeros(10'000'000));
    EXPECT_TRUE(parser.parseAbstractData(data));
    EXPECT_EQ(parser.thumbnail(), picture);
    EXPECT_THAT(data.reads(), SizeIs(1));
    EXPECT_THAT(loader().lengths(), ElementsAre(step));
}

TEST_F(KXMDQTParserTest, PictureMayTakeASecondOrThirdAttempt)
{
    for (std::uint64_t const steps : { 2, 3 }) {
        FakeMachine const other;
        other.movieLoader->setImageAtTime(picture, 0, steps * step);
        KXMDQTParser patient(other.platform());
        EXPECT_TRUE(patient.parseAbstractData(*reader(zeros(10'000'000))));
        EXPECT_EQ(patient.thumbnail(), picture);
        EXPECT_THAT(other.movieLoader->lengths(), SizeIs(steps));
    }
}

TEST_F(KXMDQTParserTest, EndOfTheFileEndsTheAttempts)
{
    EXPECT_FALSE(parse(zeros(step + 1)));
    EXPECT_THAT(loader().lengths(), ElementsAre(step, step + 1));
}

TEST_F(KXMDQTParserTest, FileThatEndsWithAStepIsNotOfferedTwice)
{
    EXPECT_FALSE(parse(zeros(step)));
    EXPECT_THAT(loader().lengths(), ElementsAre(step));
    EXPECT_FALSE(parse(zeros(2 * step)));
    EXPECT_THAT(loader().lengths(), ElementsAre(step, step, 2 * step));
}

TEST_F(KXMDQTParserTest, ReadThatGivesLessThanAStepIsTheLast)
{
    RecordingData data(zeros(10'000'000), step - 1); // Cut off while it is read, for example.
    EXPECT_FALSE(parser.parseAbstractData(data));
    EXPECT_THAT(loader().lengths(), ElementsAre(step - 1));
}

TEST_F(KXMDQTParserTest, FileThatGivesNothingIsNotOffered)
{
    loader().setImageAtTime(picture, 0);
    EXPECT_FALSE(parse({}));
    RecordingData data(zeros(1000), 0);
    EXPECT_FALSE(parser.parseAbstractData(data));
    EXPECT_THAT(loader().lengths(), IsEmpty());
}

TEST_F(KXMDQTParserTest, ReadsFromTheStartWhereverTheReaderStands)
{
    loader().setImageAtTime(picture, 0);
    auto const data = reader(zeros(1000));
    data->setOffset(700);
    EXPECT_TRUE(parser.parseAbstractData(*data));
    EXPECT_THAT(loader().lengths(), ElementsAre(1000));
}

TEST_F(KXMDQTParserTest, MovieIsOfferedTheBytesOfTheFile)
{
    /// Keeps the first bytes of what it is offered, and the last byte.
    class BytesKeeper final : public KXMovieLoader {
    public:
        std::unique_ptr<KXMovie> movieWithData(KXAbstractData& data) const override
        {
            first = data.readUInt32OrZero(KXSwap::yes);
            data.setOffset(data.length() - 1);
            last.push_back(data.readUInt8OrZero());
            EXPECT_EQ(data.readUInt8OrZero(), 0); // Nothing after.
            return nullptr;
        }
        mutable std::uint32_t first { 0 };
        mutable std::vector<int> last;
    };
    auto const keeper = std::make_shared<BytesKeeper>();
    auto platform = std::make_shared<KXPlatform>(*machine.platform());
    platform->movieLoader = keeper;
    Bytes bytes = join(u32(0x12345678), filled(3 * step, 7));
    for (std::size_t i = 1; i <= 3; ++i)
        bytes[i * step - 1] = static_cast<std::uint8_t>(i);
    EXPECT_FALSE(KXMDQTParser(platform).parseAbstractData(*reader(bytes)));
    EXPECT_EQ(keeper->first, 0x12345678u);
    EXPECT_THAT(keeper->last, ElementsAre(1, 2, 3));
}

// Errors.

TEST_F(KXMDQTParserTest, ErrorOfTheFirstAttemptIsNeverForgotten)
{
    // The second and third could give a picture, and are made.
    loader().setImageAtTime(picture, 0);
    loader().failAttempt(1);
    EXPECT_FALSE(parse(zeros(10'000'000)));
    EXPECT_FALSE(parser.thumbnail());
    EXPECT_THAT(loader().lengths(), ElementsAre(step, 2 * step, 3 * step));
    EXPECT_THAT(loader().frameCalls(), IsEmpty());
}

TEST_F(KXMDQTParserTest, ErrorOfALaterAttemptIsNotForgottenEither)
{
    loader().setImageAtTime(picture, 0, 3 * step);
    loader().failAttempt(2);
    EXPECT_FALSE(parse(zeros(10'000'000)));
    EXPECT_THAT(loader().lengths(), SizeIs(3));
    EXPECT_THAT(loader().frameCalls(), SizeIs(2)); // Both of the first attempt.
}

TEST_F(KXMDQTParserTest, EveryFileBeginsWithoutError)
{
    loader().setImageAtTime(picture, 0);
    loader().failAttempt(1);
    EXPECT_FALSE(parse(zeros(1000)));
    EXPECT_TRUE(parse(zeros(1000)));
    EXPECT_EQ(parser.thumbnail(), picture);
}

// Frames.

TEST_F(KXMDQTParserTest, PosterFrameComesFirst)
{
    loader().setImageAtTime(earlier, 0);
    loader().setImageAtTime(picture, 2.5);
    EXPECT_TRUE(parse(movieWithHeader(movieHeader(600, 1500))));
    EXPECT_EQ(parser.thumbnail(), picture);
    EXPECT_THAT(loader().frameCalls(), ElementsAre(Call { 2.5, {} })); // In its own size.
}

TEST_F(KXMDQTParserTest, MovieWithoutPosterFrameGivesItsFirstFrame)
{
    loader().setImageAtTime(picture, 0);
    EXPECT_TRUE(parse(movieWithHeader(movieHeader(600, 1500))));
    EXPECT_EQ(parser.thumbnail(), picture);
    EXPECT_THAT(loader().frameCalls(), ElementsAre(Call { 2.5, {} }, Call { 0, {} }));
}

TEST_F(KXMDQTParserTest, PosterTimeIsThatOfTheHeader)
{
    EXPECT_THAT(timesAskedFor(movieHeader(600, 300)), ElementsAre(0.5, 0));
    EXPECT_THAT(timesAskedFor(movieHeader(1000, 0)), ElementsAre(0, 0)); // As ISO files have it.
    EXPECT_THAT(timesAskedFor(movieHeader(1, 0xFFFFFFFF)), ElementsAre(4294967295.0, 0));
    EXPECT_THAT(timesAskedFor(movieHeader(0xFFFFFFFF, 0xFFFFFFFF)), ElementsAre(1, 0));
}

TEST_F(KXMDQTParserTest, HeaderMayHaveLongTimes)
{
    Bytes const header = atom("mvhd", u8(1), zeros(3), filled(8, 1), filled(8, 2), u32(600),
        u64(9000), u32(0x10000), u16(0x100), zeros(10), filled(36, 0xAA), u32(11), u32(12),
        u32(1800), zeros(16));
    EXPECT_THAT(timesAskedFor(header), ElementsAre(3, 0));
}

TEST_F(KXMDQTParserTest, TimeScaleZeroMeansTheStart)
{
    EXPECT_THAT(timesAskedFor(movieHeader(0, 300)), ElementsAre(0, 0));
}

TEST_F(KXMDQTParserTest, FirstHeaderCounts)
{
    EXPECT_THAT(
        timesAskedFor(join(movieHeader(600, 300), movieHeader(600, 1200))), ElementsAre(0.5, 0));
}

TEST_F(KXMDQTParserTest, WhatIsNoWholeHeaderMeansTheStart)
{
    EXPECT_THAT(timesAskedFor({}), ElementsAre(0, 0));
    EXPECT_THAT(timesAskedFor(atom("mvhd")), ElementsAre(0, 0));
    // Its fields would be those of the atom after it.
    Bytes const fields = join(u8(0), fieldsOfHeader(600, 300));
    for (std::uint32_t const size : { 1u, 8u, 20u, 24u, 91u })
        EXPECT_THAT(timesAskedFor(atomClaiming(size, "mvhd", fields)), ElementsAre(0, 0)) << size;
    EXPECT_THAT(timesAskedFor(atomClaiming(92, "mvhd", fields)), ElementsAre(0.5, 0));
    EXPECT_THAT(timesAskedFor(atom("udta", movieHeader(600, 300))), ElementsAre(0, 0));
}

TEST_F(KXMDQTParserTest, EveryTruncationIsSurvived)
{
    LogCapture const log;
    Bytes const whole = movieWithHeader(movieHeader(600, 300));
    std::size_t const posterTimeEnd = 16 + 8 + 92;
    for (std::size_t length = 1; length < whole.size(); ++length) {
        auto const part
            = reader(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_FALSE(parser.parseAbstractData(*part));
        double const expected = length >= posterTimeEnd ? 0.5 : 0;
        EXPECT_EQ(loader().frameCalls()[2 * length - 2].seconds, expected) << length;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KXMDQTParserTest, DeepAndOverlappingAtomsAreSurvived)
{
    LogCapture const log; // One line says that there are too many atoms.
    Bytes deep;
    for (std::uint32_t left = 3 * step; left > 0; left -= 8)
        deep = join(std::move(deep), u32(left), text("moov"));
    EXPECT_FALSE(parse(std::move(deep)));
    Bytes overlapping; // Each atom ends where it begins to be walked again.
    for (std::uint32_t i = 0; i < step / 8; ++i)
        overlapping = join(std::move(overlapping), u32(i % 2 ? 0xFFFF : 8), text("moov"));
    EXPECT_FALSE(parse(std::move(overlapping)));
    EXPECT_THAT(loader().lengths(), SizeIs(4));
}

// The picture.

TEST_F(KXMDQTParserTest, PictureIsLeftAsItWasWhenThereIsNone)
{
    parser.setThumbnail(earlier);
    EXPECT_FALSE(parse({}));
    EXPECT_FALSE(parse(zeros(1000)));
    loader().failAttempt(2);
    EXPECT_FALSE(parse(zeros(1000)));
    EXPECT_EQ(parser.thumbnail(), earlier);
    loader().setImageAtTime(picture, 0);
    EXPECT_TRUE(parse(zeros(1000)));
    EXPECT_EQ(parser.thumbnail(), picture);
}

TEST_F(KXMDQTParserTest, IsNothingAtFirstAndMayBeSet)
{
    EXPECT_FALSE(parser.thumbnail());
    parser.setThumbnail(picture);
    EXPECT_EQ(parser.thumbnail(), picture);
    parser.setThumbnail(nullptr);
    EXPECT_FALSE(parser.thumbnail());
}

TEST_F(KXMDQTParserTest, PictureIsLetGoWithTheParser)
{
    auto shown = pictures::solid(2, 2, pictures::blue);
    std::weak_ptr<KXImage const> const alive = shown;
    {
        KXMDQTParser other(machine.platform());
        other.setThumbnail(std::move(shown));
        EXPECT_FALSE(alive.expired());
    }
    EXPECT_TRUE(alive.expired());
}

TEST_F(KXMDQTParserTest, MovieIsClosedBeforeTheNextAttempt)
{
    EXPECT_FALSE(parse(zeros(10'000'000)));
    loader().setImageAtTime(picture, 0);
    EXPECT_TRUE(parse(zeros(10'000'000)));
    EXPECT_EQ(loader().openMovies(), 0u);
    EXPECT_EQ(loader().mostOpenMovies(), 1u);
}

TEST_F(KXMDQTParserTest, PictureMayBeAskedForWhileItIsReplaced)
{
    loader().setImageAtTime(picture, 0);
    parser.setThumbnail(earlier);
    std::atomic<bool> isDone { false };
    std::jthread const asking([this, &isDone] {
        while (!isDone)
            EXPECT_THAT(parser.thumbnail(), AnyOf(picture, earlier));
    });
    for (int i = 0; i < 500; ++i) {
        EXPECT_TRUE(parse(zeros(10)));
        parser.setThumbnail(earlier);
    }
    isDone = true;
}

TEST_F(KXMDQTParserTest, PlatformIsTheProcessWideOneUnlessAnotherIsGiven)
{
    loader().setImageAtTime(picture, 0);
    KXPlatform::setShared(machine.platform());
    KXMDQTParser other;
    KXPlatform::setShared(nullptr);
    EXPECT_TRUE(other.parseAbstractData(*reader(zeros(10))));
    EXPECT_EQ(other.thumbnail(), picture);
}
