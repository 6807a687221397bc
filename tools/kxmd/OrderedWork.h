#pragma once

#include "OpenFiles.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <map>
#include <mutex>
#include <stop_token>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

/// Works on items 0 to `count` - 1 on `threads` threads, or as many as the system has. The results
/// of `work(item)` go to the calling thread: whatever comes within three seconds together to
/// `finish(results)`, where it is a map by item, then each to `take(item, result)`, in the order of
/// the items. Each may hold a file open. What `work` throws ends it all, and leaves this.
template <class Work, class Finish, class Take>
void workInOrder(std::size_t count, std::size_t threads, Work work, Finish finish, Take take)
{
    using Results = std::map<std::size_t, decltype(work(std::size_t {}))>;
    std::size_t const mostWaiting = filesToHoldOpen();
    constexpr std::chrono::seconds period { 3 };
    std::atomic<std::size_t> next { 0 };
    std::mutex mutex;
    std::condition_variable_any changed;
    Results worked; // Guarded by the mutex.
    std::exception_ptr failure; // The first one; guarded too.

    auto const workOnItems = [&](std::stop_token const& stop) {
        try {
            for (std::size_t item = next++; item < count && !stop.stop_requested(); item = next++) {
                auto result = work(item);
                std::unique_lock lock(mutex);
                if (!changed.wait(lock, stop, [&] { return worked.size() < mostWaiting; }))
                    return;
                worked.emplace(item, std::move(result));
                changed.notify_all();
            }
        } catch (...) { // Out of a thread's own function it would end the program.
            next = count; // Nobody begins another one.
            std::scoped_lock const lock(mutex);
            if (!failure)
                failure = std::current_exception();
            changed.notify_all();
        }
    };
    std::vector<std::jthread> workers;
    try {
        while (workers.size() < std::min(threads, count))
            workers.emplace_back(workOnItems);
    } catch (std::system_error const&) { // Those that there are do it all.
        if (workers.empty()) {
            for (std::size_t item = 0; item < count; ++item) {
                Results result;
                result.emplace(item, work(item));
                finish(result);
                take(item, std::move(result.begin()->second));
            }
            return;
        }
    }
    Results finished;
    std::size_t left = count;
    for (std::size_t item = 0; item < count;) {
        std::unique_lock lock(mutex);
        changed.wait_for(
            lock, period, [&] { return worked.size() == std::min(left, mostWaiting) || failure; });
        changed.wait(lock, [&] { return !worked.empty() || failure; });
        if (failure)
            std::rethrow_exception(failure);
        Results results = std::exchange(worked, {});
        left -= results.size();
        changed.notify_all();
        lock.unlock();
        finish(results);
        finished.merge(results);
        for (; finished.contains(item); ++item)
            take(item, std::move(finished.extract(item).mapped()));
    }
}
