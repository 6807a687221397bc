#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>

/// Times one of a browser's own handlers: from its construction to its end. For the main thread.
///
/// A window that draws sixty times a second stutters when its main loop is kept for 16 ms. What a
/// toolkit takes for layout and drawing comes on top, so a host's own handlers must be far below.
class HandlerTime {
public:
    using Clock = std::chrono::steady_clock;

    HandlerTime() { ++depth; }
    ~HandlerTime()
    {
        if (--depth > 0)
            return; // The outermost handler holds the others.
        longest = std::max(longest, Clock::now() - _start);
        longestWork = std::max(longestWork, processorTime() - _workBefore);
    }
    HandlerTime(HandlerTime const&) = delete;
    HandlerTime& operator=(HandlerTime const&) = delete;

    static double longestMilliseconds() { return millisecondsOf(longest); }
    /// The same without the time in which the processor did something else.
    static double longestWorkMilliseconds() { return millisecondsOf(longestWork); }
    static double millisecondsOf(Clock::duration duration)
    {
        return std::chrono::duration<double, std::milli>(duration).count();
    }

private:
    /// What this thread has had of the processor.
    static std::chrono::nanoseconds processorTime()
    {
        std::timespec time {};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }

    static inline Clock::duration longest { 0 };
    static inline std::chrono::nanoseconds longestWork { 0 };
    static inline int depth { 0 };

    Clock::time_point const _start { Clock::now() };
    std::chrono::nanoseconds const _workBefore { processorTime() };
};
