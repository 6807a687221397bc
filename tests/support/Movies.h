#pragma once

#include "support/Builders.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Movies of uncompressed frames, so that each pixel of a decoded frame is known.
namespace movies {

/// A QuickTime movie with one track. Ten frames a second.
struct Movie {
    std::string_view codec { "raw " }; ///< Red, green, blue; with a depth of 32 alpha before them.
    std::uint32_t depth { 24 };
    std::uint32_t width { 16 };
    std::uint32_t height { 8 };
    std::vector<build::Bytes> frames;
    std::vector<std::uint32_t> keyFrames {}; ///< Counted from 1; without any, all are.
    build::Bytes entryChildren {}; ///< Atoms within the sample entry.
    std::array<std::int32_t, 4> matrix { 1, 0, 0, 1 }; ///< a, b, c, d (ISO/IEC 14496-12, 8.3.2).
    std::uint32_t posterTime { 0 }; ///< In frames.
    bool isHeaderLast { false };
    build::Bytes userData {}; ///< Atoms after the track.
    build::Bytes atomsInFront {}; ///< Of the track.
    build::Bytes trackChildren {}; ///< Atoms within the track, such as its edit list.
    bool isEnabled { true }; ///< Whether players show the track by themselves.
    std::vector<Movie> otherTracks {}; ///< Of these only what belongs to a track counts.

    build::Bytes file() const;
};

/// A frame of "raw " with 24 bits: every pixel is this colour.
build::Bytes solidRGB(
    std::uint32_t width, std::uint32_t height, std::array<std::uint8_t, 3> const& colour);
/// A frame of "2vuy": Y'CbCr with 8 bits.
build::Bytes solidUYVY(std::uint32_t width, std::uint32_t height, std::uint8_t luma,
    std::uint8_t blueDifference, std::uint8_t redDifference);
/// A frame of "v210", 48 pixels wide: a grey with 10 bits.
build::Bytes greyV210(std::uint32_t height, std::uint32_t luma);

/// "pasp": the width of a pixel by its height.
build::Bytes pixelAspect(std::uint32_t horizontal, std::uint32_t vertical);
/// "colr" by the numbers of ITU-T H.273.
build::Bytes colours(std::uint32_t primaries, std::uint32_t transfer, std::uint32_t matrix);

}
