#include "kxmd/base/KXLog.h"

#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;

TEST(KXLog, FillsTheFormatAndNamesTheCategory)
{
    LogCapture const log;
    KXLog("Metadata", "%s has %i atoms, 100%%", "file", -3);
    KXLog("Other", "plain");
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: file has -3 atoms, 100%", "Other: plain"));
}

TEST(KXLog, WritesLongLinesWhole)
{
    std::string const longText(100'000, 'x');
    LogCapture const log;
    KXLog("Metadata", "%s.", longText.c_str());
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.lines()[0] == "Metadata: " + longText + ".");
}

TEST(KXLog, IsSilentWithoutASink)
{
    LogCapture const log; // Puts a sink back at the end.
    KXSetLogSink({});
    KXLog("Metadata", "unheard");
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST(KXLog, CallsTheSinkOnTheThreadThatLogs)
{
    LogCapture const restoresTheSink;
    std::thread::id heardOn;
    KXSetLogSink([&](auto, auto) { heardOn = std::this_thread::get_id(); });
    std::thread::id loggedOn;
    std::thread([&] {
        loggedOn = std::this_thread::get_id();
        KXLog("Metadata", "line");
    }).join();
    EXPECT_EQ(heardOn, loggedOn);
}

TEST(KXLog, BringsEveryLineOfEveryThreadToTheSinkThatIsSet)
{
    LogCapture const restoresTheSink;
    std::atomic<int> first { 0 }, second { 0 };
    KXSetLogSink([&first](auto, auto) { ++first; });
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([] {
                for (int line = 0; line < 1000; ++line)
                    KXLog("Metadata", "line");
            });
        }
        KXSetLogSink([&second](auto, auto) { ++second; }); // Meanwhile.
    }
    EXPECT_EQ(first + second, 4000);
}

TEST(KXLogDeathTest, WritesToStandardErrorUntilASinkIsSet)
{
    // In a process of its own, in which no other test has set a sink.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            KXLog("Metadata", "Line %i", 1);
            ::_exit(0);
        },
        testing::ExitedWithCode(0), "^\\[Metadata\\] Line 1\n$");
}

TEST(KXLog, SinkMayLogItself)
{
    LogCapture const restored; // Puts the usual sink back at the end.
    std::vector<std::string> lines;
    KXSetLogSink([&lines](std::string_view, std::string_view text) {
        lines.emplace_back(text);
        if (text == "outer")
            KXLog("Metadata", "inner");
    });
    KXLog("Metadata", "outer");
    EXPECT_THAT(lines, testing::ElementsAre("outer", "inner"));
}

TEST(KXLog, SinkMayPutAnotherInItsPlace)
{
    LogCapture const restoresTheSink;
    std::vector<std::string> heard;
    auto const keptAlive = std::make_shared<std::string>("first");
    KXSetLogSink([&heard, keptAlive](auto, std::string_view text) {
        KXSetLogSink([&heard](auto, std::string_view later) { heard.emplace_back(later); });
        heard.push_back(*keptAlive + ' ' + std::string(text));
    });
    KXLog("Metadata", "one");
    KXLog("Metadata", "two");
    EXPECT_THAT(heard, ElementsAre("first one", "two"));
}

TEST(KXLog, WhatASinkThrowsIsDropped)
{
    LogCapture const restoresTheSink;
    int calls = 0;
    KXSetLogSink([&calls](auto, auto) {
        ++calls;
        throw std::runtime_error("no room");
    });
    EXPECT_NO_THROW(KXLog("Metadata", "line"));
    EXPECT_NO_THROW(KXLog("Metadata", "line"));
    EXPECT_EQ(calls, 2);
}

TEST(KXLog, ShowsTheFormatWhereItCannotBeFilled)
{
    LogCapture const log;
    KXLog("Metadata", "name: %ls", L"\x20AC"); // The C locale knows no such character.
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: name: %ls"));
}

TEST(KXLog, EmptyTextIsALine)
{
    LogCapture const log;
    KXLog("Metadata", "%s", "");
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: "));
}
