#pragma once

#include <cstddef>
#include <cstdint>

/// What Landlock is to rule, by the version that the kernel has; a kernel is asked for nothing that
/// it does not know (linux/landlock.h). What later versions added is asked for by number, since the
/// headers may be older.
struct KXLandlockRules {
    static constexpr std::uint64_t accessOfVersion1 = (1ull << 13) - 1;
    static constexpr std::uint64_t referring = 1ull << 13; ///< From version 2.
    static constexpr std::uint64_t truncating = 1ull << 14; ///< From version 3.
    static constexpr std::uint64_t bindingAndConnecting = 3; ///< From version 4: TCP.
    static constexpr std::uint64_t controllingDevices = 1ull << 15; ///< From version 5.
    /// From version 6: those of other domains.
    static constexpr std::uint64_t abstractSocketsAndSignals = 3;

    // As the kernel takes them.
    std::uint64_t files { accessOfVersion1 };
    std::uint64_t network { 0 };
    std::uint64_t scope { 0 };

    constexpr explicit KXLandlockRules(long version)
    {
        files |= version >= 2 ? referring : 0;
        files |= version >= 3 ? truncating : 0;
        network = version >= 4 ? bindingAndConnecting : 0;
        files |= version >= 5 ? controllingDevices : 0;
        scope = version >= 6 ? abstractSocketsAndSignals : 0;
    }

    /// How many bytes of it the kernel knows: an older one refuses a longer structure.
    static constexpr std::size_t lengthInVersion(long version)
    {
        return version >= 6 ? 24 : version >= 4 ? 16 : 8;
    }
};
