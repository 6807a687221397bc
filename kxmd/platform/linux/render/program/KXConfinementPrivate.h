#pragma once

#include <cstdint>

// What a process that reads untrusted files takes from itself before it does.

/// `confineToReading` Takes from this process and all that it forks every right over files but that
/// to read libraries, fonts and file types, and the right to connect to others (Landlock), and the
/// way to get more rights. False where the kernel cannot.
bool confineToReading();

/// What a program of others may touch.
struct KXProgramPlaces {
    char const* program; ///< Itself.
    char const* source; ///< The file that it shows: to read.
    char const* folder; ///< Where it writes; empty for nowhere.
};

/// `confineProgram` Takes from this process, before it becomes a program of others, every right
/// over files but to read and run what is installed and to use those places, and every way to other
/// programs and the network. False where the kernel cannot do all of it.
bool confineProgram(KXProgramPlaces const& places);

/// `canConfineToComputing` Whether the kernel has what `confineToComputing` needs.
bool canConfineToComputing();

/// `confineToComputing` Takes from this process every call of the system that decoding does not
/// need: among them those that open files for writing, make sockets and processes, start programs
/// and signal others (seccomp). False when there is no memory.
bool confineToComputing();

/// `limitProcess` Bounds the processor time of this process, and the bytes of memory that
/// it may add to what it has; it leaves no core file, and opens few files.
void limitProcess(std::uint32_t seconds, std::uint64_t memory);
