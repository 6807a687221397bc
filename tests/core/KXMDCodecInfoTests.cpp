#include "kxmd/core/KXMDCodecInfo.h"

#include "support/Fields.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <string_view>
#include <thread>

namespace {

using Names = std::map<std::int32_t, std::string_view>;

KXMDCodecInfo record(KXMDCodec codec, std::int32_t profile, std::int32_t level)
{
    KXMDCodecInfo info;
    info.setCodec(codec);
    info.setProfile(profile);
    info.setProfileLevel(level);
    return info;
}

/// Every profile number from -1 to 300 has the name in `names`, or else none.
void expectProfileNames(KXMDCodec codec, Names const& names, std::string_view unknown)
{
    for (std::int32_t profile = -1; profile <= 300; ++profile) {
        char hexadecimal[16];
        std::snprintf(hexadecimal, sizeof hexadecimal, "%x", static_cast<unsigned>(profile));
        auto const found = names.find(profile);
        EXPECT_EQ(KXMDCodecInfo::nameOfProfileOfCodec(profile, codec),
            found != names.end() ? std::string(found->second) : std::string(unknown) + hexadecimal)
            << profile;
    }
}

}

TEST(KXMDCodecInfo, HasTheseFields)
{
    using Info = KXMDCodecInfo;
    expectFields<Info>({
        field<Info>("codec", &Info::codec, &Info::setCodec, KXMDCodecNone, KXMDCodecAVC),
        field<Info>("profile", &Info::profile, &Info::setProfile, 65535, 100),
        field<Info>("profileLevel", &Info::profileLevel, &Info::setProfileLevel, 0, 41),
        field<Info>("bitRate", &Info::bitRate, &Info::setBitRate, 0, 1.5e6),
        field<Info>("videoSize", &Info::videoSize, &Info::setVideoSize, {}, { 1920, 1080 }),
        field<Info>("videoFrameRate", &Info::videoFrameRate, &Info::setVideoFrameRate, 0, 29.97),
        field<Info>("audioChannels", &Info::audioChannels, &Info::setAudioChannels, 0, 6),
    });
}

TEST(KXMDCodecInfo, FreshRecordDescribesItselfAsUnknown)
{
    EXPECT_EQ(KXMDCodecInfo().description(), "Codec: Unknown codec:0/None Level:0");
}

TEST(KXMDCodecInfo, MP3RecordHasNoProfile)
{
    EXPECT_EQ(
        record(KXMDCodecMP3, KXMDProfileUnknown, 0).description(), "Codec: MP3 Audio/None Level:0");
}

TEST(KXMDCodecInfo, ALACHasNoNameInTheDescription)
{
    EXPECT_EQ(record(KXMDCodecALAC, KXMDProfileUnknown, 0).description(),
        "Codec: Unknown codec:4/None Level:0");
}

TEST(KXMDCodecInfo, AVCRecordDescribesItself)
{
    EXPECT_EQ(record(KXMDCodecAVC, 77, 30).description(),
        "Codec: MP4 Video Part 10 AVC/ACV Main Level:30");
}

TEST(KXMDCodecInfo, VisualRecordDescribesItself)
{
    EXPECT_EQ(record(KXMDCodecMP4Visual, 9, 1).description(),
        "Codec: MP4 Video Part 2 Visual/Visual Core Level:1");
    EXPECT_EQ(record(KXMDCodecMP4Visual, 13, 1).description(),
        "Codec: MP4 Video Part 2 Visual/Unknown visual profile:d Level:1");
}

TEST(KXMDCodecInfo, AACRecordWithoutProfileSaysSo)
{
    EXPECT_EQ(record(KXMDCodecAAC, KXMDProfileUnknown, 0).description(),
        "Codec: AAC Audio/Unknown AAC profile:ffff Level:0");
}

TEST(KXMDCodecInfo, NamesEveryCodec)
{
    Names const names {
        { 0, "Unknown codec:0" },
        { 1, "MP3 Audio" },
        { 2, "AMR Audio" },
        { 3, "AMR WB Audio" },
        { 4, "Unknown codec:4" },
        { 5, "AAC Audio" },
        { 6, "MP4 Video Part 2 Visual" },
        { 7, "MP4 Video Part 10 AVC" },
        { 8, "MP4 Video H263" },
        { 9, "Unknown codec:9" },
        { -1, "Unknown codec:-1" },
    };
    for (auto const& [codec, name] : names) {
        std::string const description = record(static_cast<KXMDCodec>(codec), 0, 0).description();
        EXPECT_EQ(description.substr(0, description.find('/')), "Codec: " + std::string(name));
    }
}

TEST(KXMDCodecInfo, ShowsNegativeLevelsWithTheirSign)
{
    EXPECT_EQ(
        record(KXMDCodecH263, 0, -2).description(), "Codec: MP4 Video H263/H263 Baseline Level:-2");
}

TEST(KXMDCodecInfo, NamesProfilesOfNoOtherCodec)
{
    for (std::int32_t const number : { 0, 1, 2, 3, 4, 9, -1, 65535 }) {
        auto const codec = static_cast<KXMDCodec>(number);
        for (std::int32_t const profile : { 0, 2, 77, 65535 })
            EXPECT_EQ(KXMDCodecInfo::nameOfProfileOfCodec(profile, codec), "None") << codec;
    }
}

TEST(KXMDCodecInfo, NamesProfilesOfAAC)
{
    expectProfileNames(KXMDCodecAAC,
        {
            { 1, "Main" },
            { 2, "Low Complexity" },
            { 3, "Scalable Sample Rate" },
            { 4, "Long Term Prediction" },
            { 5, "High Efficiency" },
            { 6, "Scalable" },
            { 17, "Low Complexity +" },
            { 19, "Long Term Prediction +" },
            { 20, "Scalable +" },
            { 23, "LD" },
            { 31, "ALS" },
            { 39, "ELD" },
        },
        "Unknown AAC profile:");
}

TEST(KXMDCodecInfo, NamesProfilesOfVisual)
{
    expectProfileNames(KXMDCodecMP4Visual,
        {
            { 0, "Visual Simple" },
            { 1, "Visual Simple Scalable" },
            { 2, "Visual Core" },
            { 3, "Visual Main" },
            { 4, "Visual N Bit" },
            { 8, "Visual Hybrid" },
            { 9, "Visual Core" },
            { 10, "Visual Core Scalable" },
            { 11, "Visual Advanced Coding Efficiency" },
            { 12, "Visual Advanced Core" },
            { 14, "Visual Simple Studio" },
            { 15, "Visual Advanced Simple" },
        },
        "Unknown visual profile:");
}

TEST(KXMDCodecInfo, NamesProfilesOfAVC)
{
    expectProfileNames(KXMDCodecAVC,
        {
            { 66, "AVC Baseline" },
            { 77, "ACV Main" }, // Spelled so; hosts compare the text.
            { 88, "AVC Extended" },
            { 100, "AVC_High" },
            { 110, "AVC High 10" },
            { 122, "AVC High 422" },
            { 144, "AVC High 444" },
        },
        "Unknown AVC profile:");
}

TEST(KXMDCodecInfo, NamesProfilesOfH263)
{
    expectProfileNames(KXMDCodecH263, { { 0, "H263 Baseline" } }, "Unknown H263 profile:");
}

TEST(KXMDCodecInfo, PictureSizeIsReadAndReplacedAsOneUnit)
{
    KXMDCodecInfo info;
    std::atomic<bool> isOver { false };
    std::jthread const writer([&] {
        for (int i = 0; i < 200'000; ++i)
            info.setVideoSize(i % 2 ? KXSize { 1, 1 } : KXSize { 2, 2 });
        isOver = true;
    });
    while (!isOver) {
        KXSize const size = info.videoSize();
        ASSERT_EQ(size.width, size.height);
    }
}

TEST(KXMDCodecInfo, CopiesHaveASizeOfTheirOwn)
{
    KXMDCodecInfo info;
    info.setVideoSize({ 3, 4 });
    KXMDCodecInfo copy = info;
    copy.setVideoSize({ 5, 6 });
    EXPECT_EQ(info.videoSize(), (KXSize { 3, 4 }));
    info = copy;
    EXPECT_EQ(info.videoSize(), (KXSize { 5, 6 }));
}
