// What the movie library finds in files of all kinds. They have headers, and few samples or none.

#include "kxmd/platform/KXMediaProbe.h"

#include "support/MovieTest.h"
#include "support/PictureHeaders.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace build;
using namespace movies;

namespace {

class KXFFmpegProbe : public MovieTest {
protected:
    KXMediaProbe probeOf(Bytes bytes) const
    {
        auto probe = absentOrProbeOf(std::move(bytes));
        EXPECT_TRUE(probe);
        return probe.value_or(KXMediaProbe());
    }

    std::optional<KXMediaProbe> absentOrProbeOf(Bytes bytes) const
    {
        return loader->mediaProbeWithData(*reader(std::move(bytes)));
    }

    /// Of a file with one stream.
    KXMediaStream streamOf(Bytes bytes) const
    {
        auto const probe = probeOf(std::move(bytes));
        EXPECT_EQ(probe.streams.size(), 1u);
        return probe.streams.empty() ? KXMediaStream() : probe.streams[0];
    }
};

std::uint32_t lengthOf(Bytes const& bytes) { return static_cast<std::uint32_t>(bytes.size()); }

Movie const movie { .frames = { redFrame, greenFrame, blueFrame } };

/// A movie whose file type has another brand.
Bytes movieOfBrand(std::string_view brand)
{
    Bytes file = movie.file();
    std::copy(brand.begin(), brand.end(), file.begin() + 8);
    return file;
}

// AIFF (Apple, "Audio Interchange File Format", 1.3).

Bytes aiffChunk(std::string_view type, Bytes const& content)
{
    return join(text(type), u32(lengthOf(content)), content, zeros(content.size() % 2));
}

/// A quarter of a second of silence, two channels of 48,000 samples a second.
Bytes aiff(std::uint32_t bits, Bytes const& textChunks = {})
{
    constexpr std::uint32_t frames = 12'000, channels = 2;
    Bytes const rate = join(u16(0x400E), u16(48'000), zeros(6)); // With 80 bits (IEEE 754).
    Bytes const chunks
        = join(text("AIFF"), aiffChunk("COMM", join(u16(channels), u32(frames), u16(bits), rate)),
            textChunks, aiffChunk("SSND", zeros(8 + frames * channels * bits / 8)));
    return join(text("FORM"), u32(lengthOf(chunks)), chunks);
}

/// The head of a FLAC file: one second, two channels (RFC 9639, 8.2).
Bytes flac(std::uint32_t bits)
{
    std::uint64_t const rate = 44'100, channels = 2;
    Bytes const streamInfo = join(u16(4096), u16(4096), u24(0), u24(0),
        u64(rate << 44 | (channels - 1) << 41 | std::uint64_t { bits - 1 } << 36 | rate),
        zeros(16));
    return join(text("fLaC"), u8(0x80), u24(lengthOf(streamInfo)), streamInfo);
}

/// MP3 with 128 kbit/s behind an ID3v2 tag.
Bytes mp3(Bytes const& frames = {})
{
    Bytes const silence = join(u32(0xFFFB9000), zeros(413));
    return join(tag(ID3::v24, frames), concatenated(std::vector(20, silence)));
}

Bytes utf8Frame(std::string_view identifier, std::string_view utf8)
{
    return frame(ID3::v24, identifier, join(u8(3), text(utf8)));
}

Bytes pictureOfKind(std::uint32_t kind, std::string_view mediaType, Bytes const& picture)
{
    return frame(ID3::v24, "APIC", join(u8(0), text(mediaType), u8(0), u8(kind), u8(0), picture));
}

// Ogg (RFC 3533) with Opus (RFC 7845).

/// A page with one short packet.
Bytes oggPage(std::uint32_t flags, std::uint32_t samples, std::uint32_t number, Bytes const& packet)
{
    Bytes page = join(text("OggS"), u8(0), u8(flags), littleEndian(u64(samples)), u32(1),
        littleEndian(u32(number)), u32(0), u8(1), u8(lengthOf(packet)), packet);
    std::uint32_t crc = 0;
    for (std::uint8_t const byte : page) {
        crc ^= std::uint32_t { byte } << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 0x80000000 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
    }
    Bytes const sum = littleEndian(u32(crc));
    std::copy(sum.begin(), sum.end(), page.begin() + 22);
    return page;
}

Bytes opus(std::string_view comment)
{
    Bytes const head
        = join(text("OpusHead"), u8(1), u8(2), zeros(2), littleEndian(u32(48'000)), zeros(3));
    Bytes const tags = join(text("OpusTags"), u32(0), littleEndian(u32(1)),
        littleEndian(u32(static_cast<std::uint32_t>(comment.size()))), text(comment));
    return join(oggPage(2, 0, 0, head), oggPage(0, 0, 1, tags),
        oggPage(4, 960, 2, bytes({ 0xFC, 0xFF, 0xFE })));
}

// Matroska (RFC 9559).

Bytes element(Bytes const& identifier, Bytes const& content)
{
    return join(identifier, u32(1u << 28 | lengthOf(content)), content);
}

Bytes matroska(Bytes const& parts)
{
    return join(element(u32(0x1A45DFA3), element(u16(0x4282), text("matroska"))),
        element(u32(0x18538067), join(parts, element(u32(0x1F43B675), element(u8(0xE7), u8(0))))));
}

enum class Track : std::uint8_t { video = 1, audio = 2, subtitle = 17 };

Bytes matroskaTrack(Track kind, std::string_view codec, Bytes const& others = {})
{
    return element(u8(0xAE),
        join(element(u8(0xD7), u8(1)), element(u16(0x73C5), u8(1)),
            element(u8(0x83), u8(static_cast<std::uint8_t>(kind))), element(u8(0x86), text(codec)),
            others));
}

Bytes matroskaOfTrack(Track kind, std::string_view codec, Bytes const& others = {})
{
    return matroska(element(u32(0x1654AE6B), matroskaTrack(kind, codec, others)));
}

Bytes language(std::string_view name) { return element(u24(0x22B59C), text(name)); }

Bytes videoSize(std::uint32_t width, std::uint32_t height)
{
    return element(u8(0xE0), join(element(u8(0xB0), u16(width)), element(u8(0xBA), u16(height))));
}

Bytes matroskaOfAttachment(std::string_view name, std::string_view mediaType, Bytes const& content)
{
    Bytes const file = join(element(u16(0x466E), text(name)), element(u16(0x4660), text(mediaType)),
        element(u16(0x465C), content), element(u16(0x46AE), u8(1)));
    return matroska(element(u32(0x1941A469), element(u16(0x61A7), file)));
}

}

TEST_F(KXFFmpegProbe, WhatIsNoMediaHasNone)
{
    EXPECT_FALSE(absentOrProbeOf({}));
    EXPECT_FALSE(absentOrProbeOf(text("Dear diary")));
    EXPECT_FALSE(absentOrProbeOf(png(4, 4)));
}

TEST_F(KXFFmpegProbe, ReaderMayStandAnywhere)
{
    auto const data = reader(aiff(16));
    data->setOffset(5);
    auto const probe = loader->mediaProbeWithData(*data);
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->container, "aiff");
}

TEST_F(KXFFmpegProbe, TellsOfMusic)
{
    auto const probe = probeOf(
        aiff(24, join(aiffChunk("NAME", text("Sine")), aiffChunk("(c) ", text("Nobody")))));
    KXMediaStream expected;
    expected.kind = KXMediaStream::Kind::audio;
    expected.codec = "pcm_s24be";
    expected.bitRate = 48'000 * 2 * 24;
    expected.sampleRate = 48'000;
    expected.channels = 2;
    expected.bits = 24;
    EXPECT_EQ(probe.streams, std::vector { expected });
    EXPECT_EQ(probe.container, "aiff");
    EXPECT_EQ(probe.duration, 0.25);
    EXPECT_TRUE(probe.pictures.empty());
    EXPECT_EQ(probe.tags,
        (std::map<std::string, std::string> { { "copyright", "Nobody" }, { "title", "Sine" } }));
}

TEST_F(KXFFmpegProbe, TellsOfMovies)
{
    auto const probe = probeOf(movie.file());
    KXMediaStream expected;
    expected.kind = KXMediaStream::Kind::video;
    expected.codec = "rawvideo";
    expected.language = "eng"; // The first of QuickTime's.
    expected.bitRate = 16 * 8 * 3 * 8 * 10;
    expected.width = 16;
    expected.height = 8;
    expected.bits = 8;
    expected.frameRate = 10;
    EXPECT_EQ(probe.streams, std::vector { expected });
    EXPECT_EQ(probe.duration, 0.3);
    EXPECT_TRUE(probe.tags.empty());
}

TEST_F(KXFFmpegProbe, BitsAreThoseOfASampleOrAComponent)
{
    EXPECT_EQ(streamOf(aiff(16)).bits, 16u);
    EXPECT_EQ(
        streamOf(Movie { .depth = 40, .frames = { zeros(16 * 8) } }.file()).bits, 8u); // Grey.
    EXPECT_EQ(streamOf(mp3()).bits, 0u);
    EXPECT_EQ(streamOf(mp3()).codec, "mp3");
    EXPECT_EQ(streamOf(mp3()).bitRate, 128'000u);
    EXPECT_EQ(streamOf(flac(20)).bits, 20u);
    EXPECT_EQ(streamOf(flac(20)).channels, 2u);
}

TEST_F(KXFFmpegProbe, ContainerHasItsShortName)
{
    EXPECT_EQ(probeOf(movieOfBrand("qt  ")).container, "mov");
    EXPECT_EQ(probeOf(movieOfBrand("isom")).container, "mp4");
    Bytes withoutBrand = movie.file();
    withoutBrand.erase(withoutBrand.begin(), withoutBrand.begin() + 20);
    EXPECT_EQ(probeOf(withoutBrand).container, "mov");
    EXPECT_EQ(probeOf(matroskaOfTrack(Track::subtitle, "S_TEXT/UTF8")).container, "matroska");
    EXPECT_EQ(probeOf(flac(16)).container, "flac");
    EXPECT_EQ(probeOf(opus("TITLE=a")).container, "ogg");
    EXPECT_EQ(probeOf(mp3()).container, "mp3");
}

TEST_F(KXFFmpegProbe, StreamsAreOfAllKinds)
{
    auto const subtitle = streamOf(matroskaOfTrack(Track::subtitle, "S_TEXT/UTF8"));
    EXPECT_EQ(subtitle.kind, KXMediaStream::Kind::subtitle);
    EXPECT_EQ(subtitle.codec, "subrip");
    auto const font = streamOf(
        matroskaOfAttachment("a.ttf", "application/x-truetype-font", bytes({ 0, 1, 0, 0 })));
    EXPECT_EQ(font.kind, KXMediaStream::Kind::other);
    EXPECT_EQ(font.codec, "ttf");
    auto const unknown = streamOf(matroskaOfTrack(Track::video, "V_NOBODY", videoSize(30, 20)));
    EXPECT_EQ(unknown.kind, KXMediaStream::Kind::video);
    EXPECT_EQ(unknown.codec, "");
    EXPECT_EQ(unknown.width, 30u);
    EXPECT_EQ(unknown.bits, 0u);
}

TEST_F(KXFFmpegProbe, ProfileIsNamedByItsStandard)
{
    auto const video = streamOf(Movie { .codec = "apch", .frames = { zeros(8) } }.file());
    EXPECT_EQ(video.codec, "prores");
    EXPECT_EQ(video.profile, "HQ");
}

TEST_F(KXFFmpegProbe, WhatNobodyTellsIsZero)
{
    auto const sound = streamOf(matroskaOfTrack(Track::audio, "A_OPUS"));
    EXPECT_EQ(sound.codec, "opus");
    EXPECT_EQ(sound.profile, "");
    EXPECT_EQ(sound.bitRate, 0u);
    EXPECT_EQ(probeOf(matroskaOfTrack(Track::audio, "A_OPUS")).duration, 0);
}

TEST_F(KXFFmpegProbe, LanguageIsCutWhereItIsNone)
{
    auto const languageOf = [this](std::string const& name) {
        return streamOf(matroskaOfTrack(Track::audio, "A_OPUS", language(name))).language;
    };
    EXPECT_EQ(languageOf("ger"), "ger");
    EXPECT_EQ(languageOf(std::string(64, 'g')), std::string(64, 'g'));
    EXPECT_EQ(languageOf(std::string(65, 'g')), std::string(64, 'g'));
}

TEST_F(KXFFmpegProbe, FrameRateIsTheAverageOrFitsAllFrames)
{
    auto const frameRateOf = [this](Bytes const& others) {
        return streamOf(matroskaOfTrack(Track::video, "V_VP9", join(videoSize(4, 4), others)))
            .frameRate;
    };
    constexpr std::uint32_t nanoseconds = 40'000'000;
    EXPECT_EQ(frameRateOf(element(u24(0x23E383), u32(nanoseconds))), 25);
    EXPECT_EQ(frameRateOf(element(u24(0x23E383), u32(25 * nanoseconds))), 1);
    EXPECT_EQ(frameRateOf({}), 1000); // Times are in milliseconds.
}

TEST_F(KXFFmpegProbe, RotationIsClockwise)
{
    using Matrix = std::array<std::int32_t, 4>;
    for (auto const& [matrix, degrees] :
        { std::pair(Matrix { 1, 0, 0, 1 }, 0u), { Matrix { 1, 1, -1, 1 }, 45u },
            { Matrix { 0, 1, -1, 0 }, 90u }, { Matrix { -1, 0, 0, -1 }, 180u },
            { Matrix { 0, -1, 1, 0 }, 270u }, { Matrix { 1, -1, 1, 1 }, 315u },
            { Matrix { 0, 0, 0, 0 }, 0u } }) { // Which turns everything into a point.
        Movie turned = movie;
        turned.matrix = matrix;
        EXPECT_EQ(streamOf(turned.file()).rotation, degrees);
    }
}

TEST_F(KXFFmpegProbe, LongTagsAreCutBetweenCharacters)
{
    auto const titleOf = [this](std::string const& title) {
        return probeOf(mp3(utf8Frame("TIT2", title))).tags["title"];
    };
    std::string const most(4096, 'a');
    EXPECT_EQ(titleOf(most), most);
    EXPECT_EQ(titleOf(most + "a"), most);
    EXPECT_EQ(titleOf(most + "\u00E4"), most);
    std::string const almost = most.substr(1);
    EXPECT_EQ(titleOf(almost + "\u00E4"), almost); // Two bytes,
    EXPECT_EQ(titleOf(almost + "\u20AC"), almost); // three,
    EXPECT_EQ(titleOf(almost + "\U0001F3B5"), almost); // four,
    EXPECT_EQ(titleOf(almost.substr(1) + "\U0001F3B5"), almost.substr(1)); // of which some fit.
    EXPECT_EQ(titleOf(almost.substr(2) + "\U0001F3B5"), almost.substr(2));
    EXPECT_EQ(titleOf(almost.substr(1) + "\u00E4" + "a"), almost.substr(1) + "\u00E4");
    EXPECT_EQ(titleOf(std::string(4097, '\x80')), ""); // There is no first byte.
}

TEST_F(KXFFmpegProbe, TagsOfAStreamAreThoseOfTheFileInOggAlone)
{
    EXPECT_EQ(probeOf(opus("TITLE=Sine")).tags["title"], "Sine");
    // The name of the compressor is the "encoder" of a movie's track.
    Movie const compressed { .codec = "raw ", .frames = { redFrame } };
    Bytes file = compressed.file();
    Bytes const resolutions = join(u32(72u << 16), u32(72u << 16), u32(0), u16(1));
    auto const name = std::search(file.begin(), file.end(), resolutions.begin(), resolutions.end())
        + static_cast<std::ptrdiff_t>(resolutions.size());
    Bytes const coder = join(u8(5), text("coder"));
    std::copy(coder.begin(), coder.end(), name);
    EXPECT_EQ(probeOf(file).tags["encoder"], "");
}

TEST_F(KXFFmpegProbe, PicturesAreNamedByTheirKind)
{
    constexpr std::string_view kinds[] { "other", "icon", "icon", "front", "back", "leaflet",
        "media", "artist", "artist", "conductor", "band", "composer", "lyricist", "location",
        "recording", "performance", "screen", "fish", "illustration", "logo", "logo" };
    Bytes frames;
    std::vector<KXMediaPicture> expected;
    for (std::uint32_t kind = 0; kind < std::size(kinds); ++kind) {
        Bytes const picture = jpeg(40 + kind, 30);
        frames = join(frames, pictureOfKind(kind, "image/jpeg", picture));
        expected.push_back(
            { std::string(kinds[kind]), "image/jpeg", 40 + kind, 30, picture.size() });
    }
    auto const probe = probeOf(mp3(frames));
    EXPECT_EQ(probe.pictures, expected);
    EXPECT_EQ(probe.streams.size(), 1u);
}

TEST_F(KXFFmpegProbe, PicturesHaveTheirMediaType)
{
    auto const only = [this](Bytes file) {
        auto const pictures = probeOf(std::move(file)).pictures;
        EXPECT_EQ(pictures.size(), 1u);
        return pictures.empty() ? KXMediaPicture() : pictures[0];
    };
    for (std::string_view const type :
        { "image/jpeg", "image/png", "image/gif", "image/bmp", "image/tiff" }) {
        KXMediaPicture const damaged { "front", std::string(type), 0, 0, 1 };
        EXPECT_EQ(only(mp3(pictureOfKind(3, type, u8('x')))), damaged) << type;
    }
    // Older versions of FFmpeg leave it out.
    for (auto const& picture : probeOf(mp3(pictureOfKind(3, "image/webp", u8('x')))).pictures)
        EXPECT_EQ(picture.type, "image/webp");
    Movie withCover = movie;
    withCover.userData = userDataWithTags(covr(14, png(320, 240)));
    EXPECT_EQ(only(withCover.file()),
        (KXMediaPicture { "front", "image/png", 320, 240, png(320, 240).size() }));
}

TEST_F(KXFFmpegProbe, AttachmentIsACoverByItsName)
{
    auto const kindOf = [this](std::string_view name) {
        auto const pictures = probeOf(matroskaOfAttachment(name, "image/png", png(4, 4))).pictures;
        return pictures.size() == 1 ? pictures[0].kind : "";
    };
    EXPECT_EQ(kindOf("cover.png"), "front");
    EXPECT_EQ(kindOf("cover.jpg"), "front");
    EXPECT_EQ(kindOf("small_cover.png"), "other");
    EXPECT_EQ(kindOf("cover.gif"), "other");
}
