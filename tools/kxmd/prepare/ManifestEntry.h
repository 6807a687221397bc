#pragma once

#include "PreparedSong.h"

#include <cstdint>
#include <optional>
#include <string>

/// What was made of one file, and of what; or a playlist, of which target and size are told.
struct ManifestEntry {
    std::string source; ///< Its absolute path.
    std::uint64_t size { 0 };
    std::int64_t modified { 0 }; ///< Nanoseconds since 1970.
    std::int64_t inode {
        0
    }; ///< Its number in its file system, by which a file that moved is known.
    std::string
        checksum; ///< SHA-256 of its bytes, in hexadecimal; empty when it was not asked for.
    std::optional<std::string> cover; ///< The pictures beside it; absent where they do not matter.
    std::string album {}; ///< Whose name they may have.
    std::string options; ///< Those that the result depends on, as `PreparationOptions` tells them.
    std::string version; ///< Of the program.
    std::string target; ///< Below the folder.
    std::uint64_t targetSize { 0 };
    std::optional<PreparedSong> song; ///< Absent for what is no music.
    bool isPlaylist { false };

    bool operator==(ManifestEntry const&) const = default;
};
