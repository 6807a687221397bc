#include "kxmd/platform/KXPlatform.h"

#include <gtest/gtest.h>

#include <gio/gio.h>
#include <malloc.h>
#include <memory>

namespace {

/// Runs what waits in the default main loop.
void runMainLoop()
{
    while (g_main_context_iteration(nullptr, FALSE)) { }
}

/// Lets the desktop's memory monitor say that memory is short; false when there is no monitor.
bool runShort()
{
    GMemoryMonitor* const monitor = g_memory_monitor_dup_default();
    if (!monitor)
        return false;
    g_signal_emit_by_name(monitor, "low-memory-warning", G_MEMORY_MONITOR_WARNING_LEVEL_LOW);
    g_object_unref(monitor);
    return true;
}

}

TEST(KXGLibMemoryPressure, CallsObserversAsLongAsTheyAreRegistered)
{
    auto const pressure = KXPlatform::platformOfThisMachine()->memoryPressure;
    int first = 0, second = 0;
    auto registration = pressure->addObserver([&first] { ++first; });
    auto const other = pressure->addObserver([&second] { ++second; });
    runMainLoop();
    if (!runShort())
        GTEST_SKIP() << "no memory monitor";
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
    registration.reset();
    runShort();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
}

TEST(KXGLibMemoryPressure, ObserverMayAddAndLetGoOfObservers)
{
    auto const pressure = KXPlatform::platformOfThisMachine()->memoryPressure;
    int calls = 0;
    KXMemoryPressure::Registration registration, added;
    registration = pressure->addObserver([&] {
        added = pressure->addObserver([&calls] { ++calls; });
        registration.reset();
    });
    runMainLoop();
    if (!runShort())
        GTEST_SKIP() << "no memory monitor";
    EXPECT_EQ(calls, 0);
    runShort();
    EXPECT_EQ(calls, 1);
}

TEST(KXGLibMemoryPressure, ObserversThatAreGoneTakeNoMemory)
{
    auto const pressure = KXPlatform::platformOfThisMachine()->memoryPressure;
    auto const before = ::mallinfo2().uordblks;
    for (int i = 0; i < 10'000; ++i)
        (void)pressure->addObserver([] {});
    EXPECT_LE(::mallinfo2().uordblks, before + 100'000);
}
