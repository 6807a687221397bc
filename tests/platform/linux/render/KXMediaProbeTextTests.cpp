#include "kxmd/platform/linux/render/KXMediaProbeTextPrivate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;

/// With another value in each member.
KXMediaProbe fullProbe()
{
    KXMediaStream video;
    video.kind = KXMediaStream::Kind::video;
    video.codec = "h264";
    video.profile = "High";
    video.language = "eng";
    video.bitRate = 5'000'000'000;
    video.bits = 10;
    video.width = 1920;
    video.height = 1080;
    video.frameRate = 30000.0 / 1001;
    video.rotation = 90;
    KXMediaStream audio;
    audio.kind = KXMediaStream::Kind::audio;
    audio.codec = "flac";
    audio.sampleRate = 44100;
    audio.channels = 2;
    audio.bits = 24;
    KXMediaStream subtitle;
    subtitle.kind = KXMediaStream::Kind::subtitle;
    KXMediaProbe probe;
    probe.container = "matroska";
    probe.duration = 12.345;
    probe.streams = { video, audio, subtitle, KXMediaStream() };
    probe.pictures = { { "front", "image/jpeg", 500, 400, 40000 }, { "other", "", 0, 0, 7 } };
    probe.tags = { { "title", "Träume" }, { "show", "stream" }, { "artist", "" } };
    return probe;
}

std::string textOf(std::initializer_list<std::string_view> words)
{
    std::string text;
    for (auto const word : words)
        text += std::string(word) + '\0';
    return text;
}

TEST(KXMediaProbeText, ProbeComesBackAsItWas)
{
    EXPECT_EQ(mediaProbeOfText(textOfMediaProbe(fullProbe())), fullProbe());
    EXPECT_EQ(mediaProbeOfText(textOfMediaProbe({})), KXMediaProbe());
}

TEST(KXMediaProbeText, WhatIsNotToldIsZero)
{
    auto const probe = mediaProbeOfText(textOf({ "stream", "video", "picture", "front" }));
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->duration, 0);
    KXMediaStream const& stream = probe->streams.at(0);
    EXPECT_EQ(stream.bitRate, 0u);
    EXPECT_EQ(stream.sampleRate, 0u);
    EXPECT_EQ(stream.channels, 0u);
    EXPECT_EQ(stream.bits, 0u);
    EXPECT_EQ(stream.width, 0u);
    EXPECT_EQ(stream.height, 0u);
    EXPECT_EQ(stream.frameRate, 0);
    EXPECT_EQ(stream.rotation, 0u);
    KXMediaPicture const& picture = probe->pictures.at(0);
    EXPECT_EQ(picture.width, 0u);
    EXPECT_EQ(picture.height, 0u);
    EXPECT_EQ(picture.bytes, 0u);
}

TEST(KXMediaProbeText, CutOffTextIsAShorterProbeOrNone)
{
    std::string const whole = textOfMediaProbe(fullProbe());
    std::ptrdiff_t probes = 0;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        auto const probe = mediaProbeOfText(std::string_view(whole).substr(0, length));
        EXPECT_NE(probe, fullProbe()) << length;
        probes += probe.has_value();
    }
    EXPECT_EQ(mediaProbeOfText(""), std::nullopt);
    EXPECT_EQ(probes, std::ranges::count(whole, '\0') / 2 - 1); // Behind each value but the last.
}

TEST(KXMediaProbeText, TextsEndAtTheirFirstZero)
{
    KXMediaProbe probe;
    probe.tags["title"] = "one\0two"s;
    EXPECT_EQ(mediaProbeOfText(textOfMediaProbe(probe))->tags["title"], "one");
}

TEST(KXMediaProbeText, WhatIsNotUTF8IsLatin1)
{
    auto const probe = mediaProbeOfText(textOf({ "tag title", "Tr\xE4ume" }));
    EXPECT_EQ(probe->tags.at("title"), "Träume");
}

TEST(KXMediaProbeText, NumbersThatAreNoneAreZero)
{
    for (std::string_view const value : { "", "-1", "4294967296", "7x", " 7", "1e3", "nan" }) {
        auto const probe = mediaProbeOfText(textOf({ "stream", "video", "width", value }));
        EXPECT_EQ(probe->streams.at(0).width, 0u) << value;
    }
    for (std::string_view const value : { "", "-0.5", "nan", "inf", "1e999", "2 s" }) {
        EXPECT_EQ(mediaProbeOfText(textOf({ "duration", value }))->duration, 0) << value;
        auto const probe = mediaProbeOfText(textOf({ "stream", "video", "frameRate", value }));
        EXPECT_EQ(probe->streams.at(0).frameRate, 0) << value;
    }
    auto const largest = std::to_string(std::numeric_limits<std::uint32_t>::max());
    EXPECT_EQ(mediaProbeOfText(textOf({ "stream", "audio", "bits", largest }))->streams.at(0).bits,
        std::numeric_limits<std::uint32_t>::max());
}

TEST(KXMediaProbeText, UnknownNamesAndKindsArePassedOver)
{
    auto const probe = mediaProbeOfText(
        textOf({ "colour", "red", "stream", "smell", "width", "7", "colour", "red" }));
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->streams.at(0).kind, KXMediaStream::Kind::other);
    EXPECT_EQ(probe->streams.at(0).width, 7u);
}

TEST(KXMediaProbeText, ValuesBelongToWhatWasBegunLast)
{
    auto const probe = mediaProbeOfText(textOf({ "width", "1", "stream", "video", "width", "2",
        "picture", "front", "width", "3", "sampleRate", "4", "tag title", "5" }));
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->streams.at(0).width, 2u);
    EXPECT_EQ(probe->pictures.at(0).width, 3u);
    EXPECT_EQ(probe->streams.at(0).sampleRate, 0u);
    EXPECT_TRUE(probe->tags.empty());
}

TEST(KXMediaProbeText, OtherTagsAreNotTaken)
{
    for (std::string_view const name : { "", "Title", "titles", "\x1B]0;", "stream", "\xFF" }) {
        auto const probe = mediaProbeOfText(textOf({ "tag " + std::string(name), "text" }));
        ASSERT_TRUE(probe);
        EXPECT_TRUE(probe->tags.empty()) << name;
    }
    for (std::string_view const name : mediaProbeTags) {
        auto const probe = mediaProbeOfText(textOf({ "tag " + std::string(name), "text" }));
        EXPECT_TRUE(probe->tags.contains(std::string(name)));
    }
}

TEST(KXMediaProbeText, MoreStreamsThanFFmpegGivesAreNotTaken)
{
    for (std::string_view const kind : { "stream", "picture" }) {
        std::string text;
        for (std::size_t i = 0; i < mostMediaProbeStreams; ++i)
            text += textOf({ kind, "audio" });
        EXPECT_TRUE(mediaProbeOfText(text)) << kind;
        EXPECT_FALSE(mediaProbeOfText(text + textOf({ kind, "audio" }))) << kind;
    }
}

TEST(KXMediaProbeText, LongTextIsNotTaken)
{
    std::string const begin = textOf({ "container", "flac" }) + textOf({ "tag title" });
    std::string const most
        = begin + std::string(longestMediaProbeText - begin.size() - 1, 'a') + '\0';
    EXPECT_TRUE(mediaProbeOfText(most));
    EXPECT_FALSE(mediaProbeOfText("a" + most));
}

}
