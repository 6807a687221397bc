#include "kxmd/base/KXByteLock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <mutex>
#include <thread>

TEST(KXByteLock, WhoeverWaitsIsWokenWhenItIsFree)
{
    KXByteLock lock;
    std::promise<void> begun, taken;
    lock.lock();
    std::jthread const waiting([&] {
        begun.set_value();
        std::scoped_lock const waits(lock);
        taken.set_value();
    });
    begun.get_future().wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // It sleeps in the kernel.
    lock.unlock();
    EXPECT_EQ(taken.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
    if (testing::Test::HasFailure())
        std::_Exit(1); // Nobody will ever wake it.
}
