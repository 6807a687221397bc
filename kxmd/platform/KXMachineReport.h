#pragma once

#include "kxmd/base/KXExport.h"

#include <string>
#include <vector>

/// What this machine gives the library to work with, for whoever looks for what is missing.
struct KX_EXPORT KXMachineReport {
    /// A program of ours that decodes, in processes that it confines.
    struct Decoder {
        bool isThere { false }; ///< Whether it answers.
        bool isConfinedToReading { false }; ///< Sees no files but what it needs, by Landlock.
        bool isConfinedToComputing { false }; ///< Makes no other system calls, by seccomp.

        /// Short names, sorted: of the formats of pictures, or of the codecs of movies.
        std::vector<std::string> formats;

        /// Whether it serves hosts that require confinement.
        [[nodiscard]] bool isConfined() const
        {
            return isThere && isConfinedToReading && isConfinedToComputing;
        }

        bool operator==(Decoder const&) const = default;
    };

    Decoder pictures; ///< Both programs for pictures, as one.
    Decoder movies; ///< The program for movies, music and rarer pictures.
    std::string documentProgram; ///< The path of what shows PDF; empty when there is none.
    std::vector<std::string> thumbnailedTypes; ///< Content types with a thumbnailer of the desktop.
    std::string audioConverter; ///< The path of what converts lossless audio; empty as above.
    std::vector<std::string> iconThemes; ///< Names, in the order in which icons are looked for.

    bool operator==(KXMachineReport const&) const = default;

    /// `reportOfThisMachine` Looks around anew, on the calling thread; starts the decoders. Empty
    /// where the module with this machine's services cannot be loaded.
    [[nodiscard]] static KXMachineReport reportOfThisMachine();
};
