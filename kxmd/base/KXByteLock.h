#pragma once

#include <atomic>
#include <cstdint>

/// A mutual exclusion lock of one byte, for small objects that exist by the million.
///
/// Meets the standard's Lockable requirements. Not recursive: it is held only while a value is read
/// or replaced, or a tree of such objects is searched, and no host's code is called meanwhile.
class KXByteLock {
public:
    /// Waits until the lock is free, and takes it.
    void lock()
    {
        std::uint8_t expected = free;
        if (!_state.compare_exchange_strong(expected, held, std::memory_order_acquire))
            lockContended();
    }

    /// Takes the lock if it is free; whether it did.
    bool try_lock()
    {
        std::uint8_t expected = free;
        return _state.compare_exchange_strong(expected, held, std::memory_order_acquire);
    }

    /// Gives the lock back, on the thread that holds it.
    void unlock()
    {
        if (_state.exchange(free, std::memory_order_release) == heldWithWaiters)
            _state.notify_one();
    }

private:
    static constexpr std::uint8_t free = 0;
    static constexpr std::uint8_t held = 1;
    static constexpr std::uint8_t heldWithWaiters = 2;

    void lockContended()
    {
        while (_state.exchange(heldWithWaiters, std::memory_order_acquire) != free)
            _state.wait(heldWithWaiters, std::memory_order_relaxed);
    }

    std::atomic<std::uint8_t> _state { free };
};
