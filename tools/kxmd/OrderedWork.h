#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

/// Works on items 0 to `count` - 1 on `threads` threads and hands each result of `work(item)` to
/// `take(item, result)` on the calling thread, in the order of the items.
template <class Work, class Take>
void workInOrder(std::size_t count, std::size_t threads, Work work, Take take)
{
    using Result = decltype(work(std::size_t {}));
    std::atomic<std::size_t> next { 0 };
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::size_t, Result> results; // Guarded by the mutex.

    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < std::min(threads, count); ++i) {
        workers.emplace_back([&] {
            for (std::size_t item = next++; item < count; item = next++) {
                auto result = work(item);
                std::scoped_lock const lock(mutex);
                results.emplace(item, std::move(result));
                changed.notify_one();
            }
        });
    }
    for (std::size_t item = 0; item < count; ++item) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return results.contains(item); });
        auto result = std::move(results.extract(item).mapped());
        lock.unlock();
        take(item, std::move(result));
    }
}
