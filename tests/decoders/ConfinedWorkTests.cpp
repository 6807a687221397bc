#include "tools/afconvert/ConfinedWork.h"

#include "support/Files.h"
#include "support/Renders.h"
#include "tools/afconvert/FFmpegRefs.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr WorkLimits limits {
    .memory = 256 << 20, .longestFile = 1 << 20, .seconds = 20, .secondsOfAudio = 100
};

/// The words with which work fails; empty when it does not.
std::string failureOf(
    std::function<void(WorkProgress&)> const& work, WorkLimits const& bounds = limits)
{
    try {
        ConfinedWork(bounds, work).finish();
        return "";
    } catch (ConversionError const& error) {
        return error.what();
    }
}

void require(bool isSo, char const* what)
{
    if (!isSo)
        throw ConversionError(what);
}

}

TEST(ConfinedWork, UsesTheFilesThatAreOpen)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("file", {});
    int const file = ::open(path.c_str(), O_RDWR);
    EXPECT_EQ(failureOf([file](WorkProgress&) {
        require(::pwrite(file, "abc", 3, 0) == 3, "cannot write");
        char byte = 0;
        require(::pread(file, &byte, 1, 1) == 1 && byte == 'b', "cannot read");
    }),
        "");
    ::close(file);
    EXPECT_EQ(bytesOfFile(path).size(), 3u);
}

TEST(ConfinedWork, TellsWhatWentWrong)
{
    EXPECT_EQ(failureOf([](WorkProgress&) { throw ConversionError("is damaged"); }), "is damaged");
    EXPECT_EQ(
        failureOf([](WorkProgress&) { throw std::bad_alloc(); }), "there is not enough memory");
    EXPECT_EQ(failureOf([](WorkProgress&) { __builtin_trap(); }), "cannot be decoded");
    EXPECT_EQ(failureOf([](WorkProgress&) { ::_exit(3); }), "cannot be decoded");
}

TEST(ConfinedWork, ReachesNothingElse)
{
    if (!isConfinementThere())
        GTEST_SKIP() << "the kernel cannot confine";
    TemporaryFolder const folder;
    std::string const path = folder.write("file", { 1 });
    EXPECT_EQ(failureOf([&](WorkProgress&) {
        require(::open(path.c_str(), O_RDONLY) < 0, "reads a file");
        require(::open(path.c_str(), O_WRONLY) < 0, "writes a file");
        require(::open((path + "2").c_str(), O_CREAT | O_WRONLY, 0600) < 0, "makes a file");
        require(::unlink(path.c_str()) < 0, "removes a file");
        require(::socket(AF_INET, SOCK_STREAM, 0) < 0, "makes a socket");
        require(::fork() < 0, "makes a process");
        require(::kill(::getppid(), 0) < 0, "signals others");
        ::execl("/bin/true", "true", nullptr); // The status would be 0 and nothing said.
        throw ConversionError("is confined");
    }),
        "is confined");
}

TEST(ConfinedWork, IsKilledWhenItTakesTooLong)
{
    auto const begin = std::chrono::steady_clock::now();
    auto const loop = [](WorkProgress&) {
        for (;;)
            (void)::getpid();
    };
    EXPECT_EQ(failureOf(loop, { limits.memory, limits.longestFile, 0.3, 0 }), "takes too long");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST(ConfinedWork, HasAQuarterOfTheAudiosTime)
{
    auto const busyForASecond = [](double audio) {
        return [audio](WorkProgress& progress) {
            progress = audio;
            while (static_cast<double>(std::clock()) / CLOCKS_PER_SEC < 1) { }
        };
    };
    EXPECT_EQ(failureOf(busyForASecond(40), { limits.memory, limits.longestFile, 0.1, 100 }), "");
    EXPECT_EQ(failureOf(busyForASecond(1), { limits.memory, limits.longestFile, 0.1, 100 }),
        "takes too long");
}

TEST(ConfinedWork, TimeOfWorkThatTellsLiesIsBoundedAsWell)
{
    for (double const lie : { 1e300, std::nan(""), -1e300 }) {
        auto const loop = [lie](WorkProgress& progress) {
            progress = lie;
            for (;;)
                (void)::getpid();
        };
        EXPECT_EQ(failureOf(loop, { limits.memory, limits.longestFile, 0.2, 1 }), "takes too long");
    }
}

TEST(ConfinedWork, FileHasABound)
{
    TemporaryFolder const folder;
    int const file = ::open(folder.write("file", {}).c_str(), O_RDWR);
    std::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(failureOf([file](WorkProgress&) {
        std::vector<char> const half(limits.longestFile / 2);
        for (int i = 0; i < 2; ++i)
            require(::write(file, half.data(), half.size()) > 0, "is stopped before");
        require(::write(file, half.data(), 1) < 0, "is not stopped");
    }),
        "");
    std::signal(SIGXFSZ, SIG_DFL);
    ::close(file);
}

TEST(ConfinedWork, MemoryHasABound)
{
#if KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER
    GTEST_SKIP() << "sanitizers have memory of their own";
#endif
    EXPECT_EQ(failureOf([](WorkProgress&) {
        std::vector<char> const much(limits.memory + (64 << 20));
        require(much.back(), "has it");
    }),
        "there is not enough memory");
}
