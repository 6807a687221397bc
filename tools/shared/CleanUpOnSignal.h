#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

/// Runs a clean-up when a signal asks the process to end, and then lets the signal end it. Signals
/// that the process was told to ignore, as by nohup, stay ignored. Must be made before any other
/// thread, since all of them leave these signals to it.
class CleanUpOnSignal {
public:
    explicit CleanUpOnSignal(std::function<void()> cleanUp);
    ~CleanUpOnSignal();
    CleanUpOnSignal(CleanUpOnSignal const&) = delete;
    CleanUpOnSignal& operator=(CleanUpOnSignal const&) = delete;

private:
    void wait();

    std::function<void()> const _cleanUp;
    sigset_t _signals;
    std::atomic<bool> _isOver { false };
    std::thread _thread;
};
