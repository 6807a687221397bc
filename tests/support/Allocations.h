#pragma once

#include <cstdint>

/// What was allocated, counted by an operator new that stands before the C++ library's own.
/// Linking Allocations.cpp into a program is enough.
struct Allocations {
    std::uint64_t count { 0 };
    std::uint64_t bytes { 0 };
    std::uint64_t freed { 0 }; ///< How many were given back, whoever made them.

    /// Those of the calling thread since it began.
    static Allocations soFar();

    Allocations operator-(Allocations const& earlier) const
    {
        return { count - earlier.count, bytes - earlier.bytes, freed - earlier.freed };
    }
};

/// While it lives, one allocation of the thread that made it fails, the one after `count` others.
class FailingAllocation {
public:
    explicit FailingAllocation(std::uint64_t count);
    ~FailingAllocation();
    FailingAllocation(FailingAllocation const&) = delete;
    FailingAllocation& operator=(FailingAllocation const&) = delete;

    /// Whether it has failed.
    bool hasFailed() const;
};
