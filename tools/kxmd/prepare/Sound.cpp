#include "Sound.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>

namespace {

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
