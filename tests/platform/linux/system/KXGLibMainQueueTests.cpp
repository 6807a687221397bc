#include "kxmd/platform/KXPlatform.h"

#include <gmock/gmock.h>

#include <glib.h>
#include <malloc.h>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Lets the main loop do what is there to do, on this thread.
void runMainLoop()
{
    while (g_main_context_iteration(nullptr, FALSE)) { }
}

/// Tests of this machine's own main queue.
class KXGLibMainQueue : public testing::Test {
protected:
    std::shared_ptr<KXQueue> const queue = KXPlatform::platformOfThisMachine()->mainQueue;
};

}

TEST_F(KXGLibMainQueue, RunsNothingBeforeTheLoopDoes)
{
    std::vector<int> order;
    queue->async([&order] { order.push_back(1); });
    std::jthread([&] { queue->async([&order] { order.push_back(2); }); }).join();
    EXPECT_THAT(order, IsEmpty());
    runMainLoop();
    EXPECT_THAT(order, ElementsAre(1, 2));
    runMainLoop();
    EXPECT_EQ(order.size(), 2u); // Once each.
}

TEST_F(KXGLibMainQueue, RunsWorksOfOtherThreadsOnTheLoopsThreadInOrder)
{
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::jthread([&] {
        for (int i = 0; i < 1000; ++i) {
            queue->async([&, i] {
                order.push_back(i);
                threads.push_back(std::this_thread::get_id());
            });
        }
    }).join();
    runMainLoop();
    ASSERT_EQ(order.size(), 1000u);
    EXPECT_TRUE(std::ranges::is_sorted(order));
    EXPECT_THAT(threads, testing::Each(std::this_thread::get_id()));
}

TEST_F(KXGLibMainQueue, WorkMaySubmitAnother)
{
    std::vector<int> order;
    queue->async([&] {
        queue->async([&order] { order.push_back(2); });
        order.push_back(1);
    });
    runMainLoop();
    EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST_F(KXGLibMainQueue, LetsGoOfAWorkThatHasRun)
{
    auto held = std::make_shared<int>(0);
    std::weak_ptr<int> const alive = held;
    queue->async([held = std::move(held)] {});
    EXPECT_FALSE(alive.expired());
    runMainLoop();
    EXPECT_TRUE(alive.expired());
}

TEST_F(KXGLibMainQueue, RunsWorkBeforeWhatWaitsForIdleness)
{
    std::vector<int> order;
    g_idle_add(
        [](gpointer idle) {
            static_cast<std::vector<int>*>(idle)->push_back(2);
            return G_SOURCE_REMOVE;
        },
        &order);
    queue->async([&order] { order.push_back(1); });
    runMainLoop();
    EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST_F(KXGLibMainQueue, WorkThatHasRunTakesNoMemory)
{
    auto const runMany = [this] {
        for (int i = 0; i < 10'000; ++i) {
            queue->async([] {});
            runMainLoop();
        }
    };
    runMany();
    auto const before = ::mallinfo2().uordblks;
    runMany();
    EXPECT_LE(::mallinfo2().uordblks, before + 100'000);
}
