#include "kxmd/platform/linux/system/KXChildProcessPrivate.h"

#include "support/FileLimit.h"
#include "support/Files.h"
#include "support/Interruptions.h"
#include "support/OpenFiles.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::Lt;
namespace files = std::filesystem;

namespace {

KXChildProcess shell(std::string const& script, std::chrono::milliseconds deadline = 10'000ms)
{
    return { .arguments = { "/bin/sh", "-c", script }, .deadline = deadline };
}

/// What the process wrote, or "(nothing)".
std::string outputOf(KXChildProcess const& process)
{
    auto const output = process.run();
    return output ? std::string(output->bytes().begin(), output->bytes().end()) : "(nothing)";
}

template <class Work> std::chrono::steady_clock::duration timeOf(Work work)
{
    auto const begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::steady_clock::now() - begin;
}

}

TEST(KXChildProcess, GivesItsOutput)
{
    EXPECT_EQ(outputOf(shell("printf abc")), "abc");
    EXPECT_EQ(outputOf(shell("true")), "");
    EXPECT_EQ(outputOf(shell("head -c 300000 /dev/zero | tr '\\0' x")), std::string(300'000, 'x'));
}

TEST(KXChildProcess, FailureGivesNothing)
{
    for (char const* script : { "printf abc; exit 1", "kill -SEGV $$", "kill -KILL $$" })
        EXPECT_EQ(outputOf(shell(script)), "(nothing)") << script;
    EXPECT_EQ(outputOf({ .arguments = { "/no/such/program" } }), "(nothing)");
    EXPECT_EQ(outputOf({ .arguments = { "/" } }), "(nothing)");
}

TEST(KXChildProcess, StartsNothingWhenNoPipeCanBeOpened)
{
    TemporaryFolder const folder;
    std::string const mark = folder.path() / "mark";
    {
        FileLimit const limit;
        EXPECT_EQ(outputOf({ .arguments = { "/bin/mkdir", mark } }), "(nothing)");
    }
    EXPECT_FALSE(files::exists(mark));
}

TEST(KXChildProcess, ArgumentsAreSeenByNoShell)
{
    KXChildProcess const process { .arguments = { "/bin/echo", "$HOME", "`id`", "a  b", "", "*" } };
    EXPECT_EQ(outputOf(process), "$HOME `id` a  b  *\n");
}

TEST(KXChildProcess, IsKilledAtItsDeadline)
{
    for (char const* script : { "sleep 60", "exec sleep 60", "while :; do :; done",
             "exec >/dev/null; sleep 60", "trap '' TERM; sleep 60; sleep 60" }) {
        EXPECT_THAT(timeOf([&] { EXPECT_FALSE(shell(script, 200ms).run()) << script; }), Lt(5s));
    }
}

TEST(KXChildProcess, MayCloseItsOutputBeforeItsEnd)
{
    auto const time = timeOf(
        [] { EXPECT_EQ(outputOf(shell("printf abc; exec >/dev/null; sleep 0.1")), "abc"); });
    EXPECT_THAT(time, Lt(1s)); // Its end is noticed soon.
}

TEST(KXChildProcess, WaitingKeepsNoProcessorBusy)
{
    for (char const* script : { "sleep 0.5", "exec >/dev/null; sleep 0.5" }) {
        auto const busy = processorTimeOf([script] { EXPECT_TRUE(shell(script).run()); });
        EXPECT_THAT(busy, Lt(200ms)) << script;
    }
}

TEST(KXChildProcess, SignalsToUsDoNotDisturbIt)
{
    Interruptions const interruptions;
    EXPECT_EQ(outputOf(shell("printf abc; sleep 0.2; printf def")), "abcdef");
    EXPECT_EQ(outputOf(shell("printf abc; exec >/dev/null; sleep 0.2")), "abc");
    for (char const* script : { "sleep 5", "exec >/dev/null; sleep 5" }) {
        EXPECT_THAT(timeOf([script] { EXPECT_FALSE(shell(script, 200ms).run()); }), Lt(3s));
    }
}

TEST(KXChildProcess, LeavesNeitherFilesNorProcessesBehind)
{
    auto const before = countOfOpenFiles();
    for (char const* script : { "true", "false", "sleep 60", "exec >/dev/null; sleep 60" }) {
        (void)shell(script, 100ms).run();
        EXPECT_EQ(countOfOpenFiles(), before) << script;
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << script;
        EXPECT_EQ(errno, ECHILD) << script;
    }
}

TEST(KXChildProcess, HasBoundsUnlessToldOtherwise)
{
    EXPECT_EQ(KXChildProcess().deadline, 10s);
    // It is bounded a moment after it begins to run.
    EXPECT_EQ(outputOf(shell("for line in 'data size *1073741824 ' 'file size *67108864 '; do\n"
                             "until grep -q \"$line\" /proc/self/limits; do sleep 0.1; done\n"
                             "done; printf abc",
                  3'000ms)),
        "abc");
}

TEST(KXChildProcess, LeavesNoMemoryOfItselfInAFile)
{
    rlimit before;
    ASSERT_EQ(::getrlimit(RLIMIT_CORE, &before), 0);
    rlimit const some { 4096, std::max<rlim_t>(before.rlim_max, 4096) };
    if (::setrlimit(RLIMIT_CORE, &some) != 0)
        GTEST_SKIP() << "nobody here may leave any";
    EXPECT_EQ(outputOf(shell("until grep -q 'core file size *0 *0 ' /proc/self/limits\n"
                             "do sleep 0.1; done; printf abc",
                  3'000ms)),
        "abc");
    ::setrlimit(RLIMIT_CORE, &before);
}

TEST(KXChildProcess, WhatItStartedIsKilledWithIt)
{
    TemporaryFolder const folder;
    auto const mark = folder.path() / "mark";
    // The writer holds the pipe open beyond its parent's end.
    EXPECT_FALSE(shell("(sleep 1; touch " + mark.string() + ") & exit 0", 200ms).run());
    std::this_thread::sleep_for(1500ms);
    EXPECT_FALSE(files::exists(mark));
}

TEST(KXChildProcess, WritesNoMoreThanItMay)
{
    KXChildProcess process = shell("cat /dev/zero");
    process.mostOutputBytes = 100'000;
    EXPECT_THAT(timeOf([&] { EXPECT_FALSE(process.run()); }), Lt(5s));

    process = shell("head -c 100000 /dev/zero");
    process.mostOutputBytes = 100'000;
    EXPECT_EQ(outputOf(process).size(), 100'000u);

    TemporaryFolder const folder;
    auto const path = folder.path() / "file";
    process = shell("sleep 0.1; exec head -c 1000000 /dev/zero > " + path.string());
    process.mostOutputBytes = 100'000;
    EXPECT_FALSE(process.run());
    EXPECT_LE(files::file_size(path), 100'000u);
}

TEST(KXChildProcess, HasNoMoreMemoryThanItMay)
{
    // A line that the shell has to hold as a whole.
    KXChildProcess process
        = shell("sleep 0.1; x=$(head -c 300000000 /dev/zero | tr '\\0' x); exit 0");
    process.mostMemoryBytes = 50'000'000;
    EXPECT_FALSE(process.run());
}

TEST(KXChildProcess, SeesNoFileOfOurs)
{
    // Without the flag that closes it in other programs.
    int const descriptor = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(outputOf({ .arguments = { "/bin/sh", "-c", "ls /proc/self/fd | wc -l" } }), "4\n");
    EXPECT_EQ(outputOf(shell("read line || echo empty")), "empty\n");
    ::close(descriptor);
}

TEST(KXChildProcess, StartsWithoutOurSignalMask)
{
    sigset_t blocked, before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);
    EXPECT_FALSE(shell("kill -TERM $$; exit 0").run());
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(KXChildProcess, HostMayIgnoreTheEndsOfItsChildren)
{
    auto const before = ::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(outputOf(shell("printf abc")), "abc");
    EXPECT_EQ(outputOf(shell("sleep 60", 100ms)), "(nothing)");
    EXPECT_EQ(outputOf(shell("exec >/dev/null; sleep 60", 100ms)), "(nothing)");
    ::signal(SIGCHLD, before);
}

TEST(KXChildProcess, IgnoresNoSignalThatTheHostIgnores)
{
    auto const before = ::signal(SIGHUP, SIG_IGN);
    EXPECT_EQ(outputOf(shell("kill -HUP $$; printf abc")), "(nothing)");
    ::signal(SIGHUP, before);
}

TEST(KXChildProcess, SeveralRunAtOnce)
{
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            for (int run = 0; run < 5; ++run)
                EXPECT_EQ(outputOf(shell("echo " + std::to_string(i))), std::to_string(i) + "\n");
        });
    }
}
