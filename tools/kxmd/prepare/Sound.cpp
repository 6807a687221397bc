#include "Sound.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

/// By the names of the movie library. Telephone sound, pcm_alaw and pcm_mulaw, is not lossless.
bool isLosslessCodec(std::string_view codec)
{
    constexpr std::array<std::string_view, 6> names { "alac", "ape", "flac", "tta", "wavpack",
        "pcm_bluray" };
    constexpr std::array<std::string_view, 3> linear { "pcm_s", "pcm_u", "pcm_f" };
    return std::ranges::find(names, codec) != names.end()
        || std::ranges::any_of(
            linear, [codec](std::string_view prefix) { return codec.starts_with(prefix); });
}

/// The number that a text such as "3/9" begins with; 0 without one.
std::uint32_t numberAtStartOf(std::map<std::string, std::string> const& tags, char const* name)
{
    auto const tag = tags.find(name);
    std::uint32_t number = 0;
    if (tag != tags.end())
        std::from_chars(tag->second.data(), tag->second.data() + tag->second.size(), number);
    return number;
}

}

bool isLossless(KXMediaProbe const& probe)
{
    using Kind = KXMediaStream::Kind;
    bool const hasPictures = std::ranges::any_of(
        probe.streams, [](KXMediaStream const& stream) { return stream.kind == Kind::video; });
    return !hasPictures && std::ranges::any_of(probe.streams, [](KXMediaStream const& stream) {
        return stream.kind == Kind::audio && isLosslessCodec(stream.codec);
    });
}

std::uint64_t convertedSizeOf(KXMediaProbe const& probe)
{
    constexpr double bytesPerSecond = 256000.0 / 8;
    constexpr double longest = 1e9; // Seconds; what claims more is no song.
    return static_cast<std::uint64_t>(std::clamp(probe.duration, 0.0, longest) * bytesPerSecond);
}

void addProbeTo(PreparedSong& song, KXMediaProbe const& probe)
{
    auto const fill = [&probe](std::string& text, char const* name) {
        if (auto const tag = probe.tags.find(name); text.empty() && tag != probe.tags.end())
            text = tag->second;
    };
    fill(song.title, "title");
    fill(song.artist, "artist");
    song.disc = numberAtStartOf(probe.tags, "disc");
    song.track = numberAtStartOf(probe.tags, "track");
    song.duration = probe.duration;
    song.isProbed = true;
}
