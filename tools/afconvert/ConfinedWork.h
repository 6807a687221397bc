#pragma once

#include "kxmd/platform/linux/system/KXPipePrivate.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <sys/types.h>

/// What a piece of work may take.
struct WorkLimits {
    std::uint64_t memory; ///< Bytes beyond what this process has.
    std::uint64_t longestFile; ///< Bytes that it writes into a file.
    double seconds; ///< Of processor time, besides a quarter of the seconds of audio that it made.
    double secondsOfAudio; ///< The most that it makes.
};

/// Seconds of audio that work has made, for whoever watches it.
using WorkProgress = std::atomic<double>;

/// Work in a process of its own that can do nothing but compute and use the files that are open: it
/// makes no file, socket, process or program, sees no other file, and is killed with the thread
/// that made this object. Where the kernel cannot confine it, it runs with the bounds alone.
class ConfinedWork {
public:
    /// Begins. Must be made before this process has other threads: locks that they hold would never
    /// be free in the new one.
    ConfinedWork(WorkLimits const& limits, std::function<void(WorkProgress& progress)> const& work);
    /// Kills what is not finished.
    ~ConfinedWork();
    ConfinedWork(ConfinedWork const&) = delete;
    ConfinedWork& operator=(ConfinedWork const&) = delete;

    /// Waits for the end, once. Throws `ConversionError` with the words of what leaves `work`, or
    /// those for a process that died or took too long, if only to do nothing for ten minutes.
    void finish();

private:
    WorkLimits const _limits;
    WorkProgress* const _progress; // In memory that both processes have.
    KXPipe _words;
    pid_t _process { -1 };
};
