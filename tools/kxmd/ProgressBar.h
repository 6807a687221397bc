#pragma once

#include <kxmd/base/KXGuarded.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

class StandardError;

/// Shows on the last line of the terminal how far a long run has come, and how long it may still
/// take. Erased with the object; nothing when standard error is not a terminal.
class ProgressBar {
public:
    struct Amount {
        std::uint64_t items { 0 };
        std::uint64_t bytes { 0 };
    };

    /// A bar for `total`, its items called by `unit`, such as "files". Without bytes in the total
    /// none are shown, and the time left follows from the items alone.
    ProgressBar(StandardError& output, std::string unit, Amount total);
    ~ProgressBar();
    ProgressBar(ProgressBar const&) = delete;
    ProgressBar& operator=(ProgressBar const&) = delete;

    /// Counts what was done. Draws at most ten times per second. Safe on several threads.
    void advanceBy(Amount done);

private:
    using Clock = std::chrono::steady_clock;

    struct State {
        Amount done;
        Clock::time_point lastDrawing;
    };

    void draw(State& state, Clock::time_point now);
    double partOf(Amount done) const;
    std::string textAt(Clock::time_point now, Amount done) const;

    StandardError& _output;
    std::string const _unit;
    Amount const _total;
    Clock::time_point const _start { Clock::now() };
    KXGuarded<State> _state;
};
