#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

/// Works on items 0 to `count` - 1 on `threads` threads, or as many as the system has, and hands
/// each result of `work(item)` to `take(item, result)` on the calling thread, in the order of the
/// items.
template <class Work, class Take>
void workInOrder(std::size_t count, std::size_t threads, Work work, Take take)
{
    using Result = decltype(work(std::size_t {}));
    std::atomic<std::size_t> next { 0 };
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::size_t, Result> results; // Guarded by the mutex.

    auto const workOnItems = [&] {
        for (std::size_t item = next++; item < count; item = next++) {
            auto result = work(item);
            std::scoped_lock const lock(mutex);
            results.emplace(item, std::move(result));
            changed.notify_one();
        }
    };
    std::vector<std::jthread> workers;
    try {
        while (workers.size() < std::min(threads, count))
            workers.emplace_back(workOnItems);
    } catch (std::system_error const&) { // Those that there are do it all.
        if (workers.empty()) {
            for (std::size_t item = 0; item < count; ++item)
                take(item, work(item));
            return;
        }
    }
    for (std::size_t item = 0; item < count; ++item) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return results.contains(item); });
        auto result = std::move(results.extract(item).mapped());
        lock.unlock();
        take(item, std::move(result));
    }
}
