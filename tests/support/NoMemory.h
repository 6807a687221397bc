#pragma once

#include <cstddef>

/// While it lives, one of the aligned allocations of the C library that its thread asks for fails,
/// the one after `count` others: FFmpeg allocates in no other way.
class NoMemory {
public:
    explicit NoMemory(std::size_t count);
    ~NoMemory();
    NoMemory(NoMemory const&) = delete;
    NoMemory& operator=(NoMemory const&) = delete;

    /// Whether it has failed.
    bool hasFailed() const;
};
