#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

/// What a piece of work may take.
struct WorkLimits {
    std::uint64_t memory; ///< Bytes beyond what this process has.
    std::uint64_t longestFile; ///< Bytes that it writes into a file.
    double seconds; ///< Of processor time, besides a quarter of the seconds of audio that it made.
    double secondsOfAudio; ///< The most that it makes.
};

/// Seconds of audio that work has made, for whoever watches it.
using WorkProgress = std::atomic<double>;

/// Does work in a process of its own that can do nothing but compute and use the files that are
/// open: it makes no file, socket, process or program, sees no other file, and is killed with this
/// thread. Where the kernel cannot confine it, it runs with the bounds alone.
///
/// Throws `ConversionError` with the words of what leaves `work`, or those for a process that died
/// or took too long, if only to do nothing for ten minutes.
void doConfined(WorkLimits const& limits, std::function<void(WorkProgress& progress)> const& work);
