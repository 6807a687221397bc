#include "kxmd/base/KXSerialQueue.h"

#include "kxmd/base/KXLog.h"
#include "support/LogCapture.h"
#include "support/NoThreads.h"

#include <gmock/gmock.h>

#include <future>
#include <pthread.h>
#include <thread>
#include <vector>

using testing::ElementsAre;

namespace {

/// Waits until the works submitted so far have run.
void drain(KXQueue& queue)
{
    std::promise<void> done;
    queue.async([&done] { done.set_value(); });
    done.get_future().wait();
}

}

TEST(KXSerialQueue, KeepsItsLabel)
{
    EXPECT_EQ(KXSerialQueue("org.example.work").label(), "org.example.work");
}

TEST(KXSerialQueue, RunsWorksInOrderOnOneOtherThread)
{
    KXSerialQueue queue("org.example.work");
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    for (int i = 0; i < 1000; ++i) {
        queue.async([&, i] {
            order.push_back(i);
            threads.push_back(std::this_thread::get_id());
        });
    }
    drain(queue);
    ASSERT_EQ(order.size(), 1000u);
    EXPECT_TRUE(std::ranges::is_sorted(order));
    EXPECT_THAT(threads, testing::Each(threads[0]));
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(KXSerialQueue, RunsEachWorkOnceWhoeverSubmitsIt)
{
    KXSerialQueue queue("org.example.work");
    std::vector<int> counts(4 * 500); // Touched by the queue's thread alone.
    {
        std::vector<std::jthread> submitters;
        for (std::size_t submitter = 0; submitter < 4; ++submitter) {
            submitters.emplace_back([&queue, &counts, submitter] {
                for (std::size_t i = 0; i < 500; ++i)
                    queue.async([&count = counts[submitter * 500 + i]] { ++count; });
            });
        }
    }
    drain(queue);
    EXPECT_THAT(counts, testing::Each(1));
}

TEST(KXSerialQueue, WorkSubmittedByAWorkRunsAfterTheOthers)
{
    KXSerialQueue queue("org.example.work");
    std::vector<std::string> order;
    std::promise<void> go, done;
    queue.async([&] {
        go.get_future().wait();
        queue.async([&] {
            order.push_back("inner");
            done.set_value();
        });
        order.push_back("outer");
    });
    queue.async([&] { order.push_back("second"); });
    go.set_value();
    done.get_future().wait();
    EXPECT_THAT(order, ElementsAre("outer", "second", "inner"));
}

TEST(KXSerialQueue, ThreadBearsTheLastComponentOfTheLabel)
{
    auto const threadName = [](char const* label) {
        KXSerialQueue queue(label);
        char name[16] = {};
        std::promise<void> done;
        queue.async([&] {
            ::pthread_getname_np(::pthread_self(), name, sizeof name);
            done.set_value();
        });
        done.get_future().wait();
        return std::string(name);
    };
    EXPECT_EQ(threadName("org.example.work"), "work");
    EXPECT_EQ(threadName("plain"), "plain");
    EXPECT_EQ(threadName("org.example.filemetacontroller"), "filemetacontrol");
}

TEST(KXSerialQueue, RunsWhatWasSubmittedBeforeItWasLetGo)
{
    std::vector<int> order;
    std::promise<void> go, done;
    {
        KXSerialQueue queue("org.example.work");
        queue.async([&] { go.get_future().wait(); });
        for (int i = 0; i < 3; ++i)
            queue.async([&order, i] { order.push_back(i); });
        queue.async([&] { done.set_value(); });
    }
    go.set_value();
    done.get_future().wait();
    EXPECT_THAT(order, ElementsAre(0, 1, 2));
}

TEST(KXSerialQueue, LastOwnerMayBeItsOwnWork)
{
    std::promise<std::thread::id> destroyedOn;
    std::shared_ptr<KXSerialQueue> queue(
        new KXSerialQueue("org.example.work"), [&destroyedOn](KXSerialQueue* doomed) {
            delete doomed;
            destroyedOn.set_value(std::this_thread::get_id());
        });
    std::promise<void> letGo;
    std::thread::id queueThread;
    auto& sameQueue = *queue;
    sameQueue.async([&, owner = queue] {
        letGo.get_future().wait();
        queueThread = std::this_thread::get_id();
    });
    queue.reset();
    letGo.set_value();
    auto const thread = destroyedOn.get_future().get();
    EXPECT_EQ(thread, queueThread);
}

TEST(KXSerialQueue, LetsGoOfAWorkBeforeTheNextBegins)
{
    KXSerialQueue queue("org.example.work");
    auto held = std::make_shared<int>(0);
    std::weak_ptr<int> const alive = held;
    queue.async([held = std::move(held)] {});
    bool expired = false;
    queue.async([&] { expired = alive.expired(); });
    drain(queue);
    EXPECT_TRUE(expired);
}

TEST(KXSerialQueue, ItsThreadEndsOnceItIsLetGo)
{
    struct Farewell {
        ~Farewell()
        {
            if (ended)
                ended->set_value();
        }
        std::shared_ptr<std::promise<void>> ended;
    };
    auto const ended = std::make_shared<std::promise<void>>();
    std::promise<void> worked;
    {
        KXSerialQueue queue("queue");
        queue.async([&worked, ended] {
            thread_local Farewell farewell;
            farewell.ended = ended;
            worked.set_value();
        });
        worked.get_future().wait();
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // It waits for work again.
    }
    EXPECT_EQ(ended->get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
}

TEST(KXSerialQueue, MayGoWithoutEverHavingWorked)
{
    for (int i = 0; i < 10'000; ++i)
        KXSerialQueue("org.example.work"); // Starts no thread.
}

TEST(KXSerialQueue, WithoutAThreadWorksRunWhereTheyAreSubmitted)
{
    LogCapture const log;
    NoThreads const noThreads;
    KXSerialQueue queue("org.example.work");
    std::thread::id ranOn;
    queue.async([&ranOn] { ranOn = std::this_thread::get_id(); });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_THAT(log.lines(), ElementsAre(testing::HasSubstr("no thread")));
}

TEST(KXSerialQueue, WithoutAThreadAWorkSubmittedByAWorkRunsAfterIt)
{
    LogCapture const log;
    NoThreads const noThreads;
    KXSerialQueue queue("org.example.work");
    std::vector<std::string> order;
    queue.async([&] {
        queue.async([&] { order.push_back("inner"); });
        order.push_back("outer");
    });
    EXPECT_THAT(order, ElementsAre("outer", "inner"));
}

TEST(KXSerialQueue, TriesAgainToStartItsThread)
{
    LogCapture const log;
    KXSerialQueue queue("org.example.work");
    {
        NoThreads const noThreads;
        queue.async([] {});
    }
    std::promise<std::thread::id> ranOn;
    queue.async([&ranOn] { ranOn.set_value(std::this_thread::get_id()); });
    EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
}

TEST(KXSerialQueue, WithoutAThreadAWorkMayBeTheLastOwner)
{
    LogCapture const log;
    NoThreads const noThreads;
    auto queue = std::make_shared<KXSerialQueue>("org.example.work");
    auto& sameQueue = *queue;
    bool isDone = false;
    sameQueue.async([&] {
        queue = nullptr;
        isDone = true;
    });
    EXPECT_TRUE(isDone);
}

TEST(KXSerialQueue, SinkOfTheLogMayUseTheQueue)
{
    LogCapture const restoresTheSink;
    NoThreads const noThreads;
    KXSerialQueue queue("org.example.work");
    int done = 0;
    KXSetLogSink([&](auto, auto) {
        if (done < 10)
            queue.async([&done] { ++done; });
    });
    queue.async([&done] { ++done; });
    EXPECT_EQ(done, 10);
}
