#pragma once

#include <cstdint>
#include <string>

/// What a playlist says of a song, and what it is sorted by.
struct PreparedSong {
    bool isProtected { false }; ///< Only its owner's devices play it.
    bool isProbed { false }; ///< Whether the fields below are known; a title or artist may be.
    std::string title;
    std::string artist;
    std::uint32_t disc { 0 }; ///< 0 when there is none, as for the track.
    std::uint32_t track { 0 };
    double duration { 0 }; ///< In seconds; 0 when it is not known.

    bool operator==(PreparedSong const&) const = default;
};
