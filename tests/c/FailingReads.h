#pragma once

#include <cstddef>

/// While it lives, every positioned read of its thread fails with EIO, but for the first `count`.
class FailingReads {
public:
    explicit FailingReads(std::size_t count);
    ~FailingReads();
    FailingReads(FailingReads const&) = delete;
    FailingReads& operator=(FailingReads const&) = delete;

    /// Whether one has failed.
    bool haveFailed() const;
};
