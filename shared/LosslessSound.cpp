#include "shared/LosslessSound.h"

#include <algorithm>
#include <array>
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
