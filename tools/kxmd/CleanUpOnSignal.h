#pragma once

#include <csignal>
#include <functional>
#include <thread>

/// Runs a clean-up when a signal asks the process to end, and then lets the signal end it. Must be
/// made before any other thread, since all of them leave these signals to it.
class CleanUpOnSignal {
public:
    explicit CleanUpOnSignal(std::function<void()> cleanUp);
    ~CleanUpOnSignal();
    CleanUpOnSignal(CleanUpOnSignal const&) = delete;
    CleanUpOnSignal& operator=(CleanUpOnSignal const&) = delete;

private:
    sigset_t _signals;
    std::jthread _thread;
};
