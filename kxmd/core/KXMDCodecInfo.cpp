#include "kxmd/core/KXMDCodecInfo.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <string_view>

namespace {

struct NumberName {
    std::int32_t number;
    std::string_view name;
};

constexpr NumberName codecNames[] {
    { KXMDCodecMP3, "MP3 Audio" },
    { KXMDCodecAMR, "AMR Audio" },
    { KXMDCodecAMRWB, "AMR WB Audio" },
    { KXMDCodecAAC, "AAC Audio" },
    { KXMDCodecMP4Visual, "MP4 Video Part 2 Visual" },
    { KXMDCodecAVC, "MP4 Video Part 10 AVC" },
    { KXMDCodecH263, "MP4 Video H263" },
};

// Audio object types of ISO/IEC 14496-3, table 1.17.
constexpr NumberName profilesOfAAC[] {
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
};

// High four bits of profile_and_level_indication, ISO/IEC 14496-2, table G.1.
constexpr NumberName profilesOfMP4Visual[] {
    { 0, "Visual Simple" },
    { 1, "Visual Simple Scalable" },
    { 2, "Visual Core" },
    { 3, "Visual Main" },
    { 4, "Visual N Bit" },
    { 8, "Visual Hybrid" },
    { 9, "Visual Core" }, // The same text as 2, on purpose.
    { 10, "Visual Core Scalable" },
    { 11, "Visual Advanced Coding Efficiency" },
    { 12, "Visual Advanced Core" },
    { 14, "Visual Simple Studio" },
    { 15, "Visual Advanced Simple" },
};

// profile_idc of ISO/IEC 14496-10, annex A. Hosts compare the texts: the spelling of 77 and the
// underscore of 100 stay.
constexpr NumberName profilesOfAVC[] {
    { 66, "AVC Baseline" },
    { 77, "ACV Main" },
    { 88, "AVC Extended" },
    { 100, "AVC_High" },
    { 110, "AVC High 10" },
    { 122, "AVC High 422" },
    { 144, "AVC High 444" },
};

constexpr NumberName profilesOfH263[] { { 0, "H263 Baseline" } };

struct CodecProfiles {
    std::int32_t codec;
    std::string_view family; ///< As named in the text for a profile that has no name.
    std::span<NumberName const> names;
};

constexpr CodecProfiles codecProfiles[] {
    { KXMDCodecAAC, "AAC", profilesOfAAC },
    { KXMDCodecMP4Visual, "visual", profilesOfMP4Visual },
    { KXMDCodecAVC, "AVC", profilesOfAVC },
    { KXMDCodecH263, "H263", profilesOfH263 },
};

std::string_view nameOfNumber(std::span<NumberName const> names, std::int32_t number)
{
    auto const found = std::ranges::find(names, number, &NumberName::number);
    return found == names.end() ? std::string_view() : found->name;
}

std::string hexadecimal(std::int32_t number)
{
    std::array<char, 9> digits;
    std::snprintf(digits.data(), digits.size(), "%x", static_cast<unsigned>(number));
    return digits.data();
}

std::string nameOfCodec(KXMDCodec codec)
{
    std::string_view const name = nameOfNumber(codecNames, codec);
    return name.empty() ? "Unknown codec:" + std::to_string(codec) : std::string(name);
}

}

std::string KXMDCodecInfo::nameOfProfileOfCodec(std::int32_t profile, KXMDCodec codec)
{
    auto const found = std::ranges::find(codecProfiles, codec, &CodecProfiles::codec);
    if (found == std::end(codecProfiles))
        return "None";
    std::string_view const name = nameOfNumber(found->names, profile);
    if (!name.empty())
        return std::string(name);
    return "Unknown " + std::string(found->family) + " profile:" + hexadecimal(profile);
}

std::string KXMDCodecInfo::description() const
{
    return "Codec: " + nameOfCodec(_codec) + '/' + nameOfProfileOfCodec(_profile, _codec)
        + " Level:" + std::to_string(_profileLevel);
}
