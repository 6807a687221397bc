#pragma once

#include <cstdint>

/// What this process asked the kernel for on behalf of files, counted by functions that stand in
/// front of the C library's own. Linking SystemCalls.cpp into a program is enough.
struct SystemCalls {
    std::uint64_t calls { 0 }; ///< open, stat, fstat, pread, read and close.
    std::uint64_t opened { 0 }; ///< open alone.
    std::uint64_t bytesRead { 0 };

    /// The counts of the calling thread since it began.
    static SystemCalls soFar();

    SystemCalls operator-(SystemCalls const& earlier) const
    {
        return { calls - earlier.calls, opened - earlier.opened, bytesRead - earlier.bytesRead };
    }
};

/// While it lives, each pread of the thread that made it gives one byte at most, and every second
/// one is interrupted.
class HesitantReads {
public:
    HesitantReads();
    ~HesitantReads();
    HesitantReads(HesitantReads const&) = delete;
    HesitantReads& operator=(HesitantReads const&) = delete;
};
