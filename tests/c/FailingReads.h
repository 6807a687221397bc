#pragma once

#include <cstddef>
#include <functional>

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

/// While it lives, something is done before one positioned read of its thread, the one after
/// `count` others.
class InterruptedRead {
public:
    InterruptedRead(std::size_t count, std::function<void()> interruption);
    ~InterruptedRead();
    InterruptedRead(InterruptedRead const&) = delete;
    InterruptedRead& operator=(InterruptedRead const&) = delete;

    /// Whether it was done.
    bool isDone() const { return !_interruption; }

private:
    friend void interruptReadIfWanted();

    std::size_t _left;
    std::function<void()> _interruption;
};
