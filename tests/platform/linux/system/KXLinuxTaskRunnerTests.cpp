#include "kxmd/platform/KXPlatform.h"

#include "support/Files.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace build;
using testing::Optional;
namespace files = std::filesystem;

namespace {

using Status = std::optional<int>;

Status run(std::string const& path, std::vector<std::string> const& arguments)
{
    return KXPlatform::platformOfThisMachine()->taskRunner->runToolAtPath(path, arguments);
}

Status runScript(std::string const& script, std::vector<std::string> arguments = {})
{
    arguments.insert(arguments.begin(), { "-c", script, "sh" });
    return run("/bin/sh", arguments);
}

/// A line of /proc/self/status as a child sees it, such as "SigBlk", which shells do not change.
std::string signalsOfChild(std::string const& name, files::path const& folder)
{
    std::string const file = folder / "status";
    EXPECT_THAT(
        runScript("grep " + name + " /proc/self/status | cut -f2 > \"$1\"", { file }), Optional(0));
    auto const bytes = bytesOfFile(file);
    return { bytes.begin(), bytes.end() - 1 };
}

}

TEST(KXLinuxTaskRunner, GivesTheExitStatus)
{
    for (int const status : { 0, 1, 2, 127, 255 })
        EXPECT_THAT(runScript("exit " + std::to_string(status)), Optional(status));
}

TEST(KXLinuxTaskRunner, KilledProgramHasNoStatus)
{
    for (std::string const signal : { "KILL", "TERM", "SEGV" })
        EXPECT_EQ(runScript("ulimit -c 0; kill -" + signal + " $$"), std::nullopt);
}

TEST(KXLinuxTaskRunner, ProgramThatCannotBeStartedHasNoStatus)
{
    TemporaryFolder const folder;
    EXPECT_EQ(run("/no/such/program", {}), std::nullopt);
    EXPECT_EQ(run("", {}), std::nullopt);
    EXPECT_EQ(run("/", {}), std::nullopt);
    EXPECT_EQ(run("sh", { "-c", "exit 0" }), std::nullopt); // No search by name.
    std::string const notExecutable = folder.write("program", text("#!/bin/sh\n"));
    EXPECT_EQ(run(notExecutable, {}), std::nullopt);
    ASSERT_EQ(::chmod(notExecutable.c_str(), 0700), 0);
    EXPECT_THAT(run(notExecutable, {}), Optional(0));
}

TEST(KXLinuxTaskRunner, ArgumentsArriveAsTheyAre)
{
    TemporaryFolder const folder;
    std::string const file = folder.path() / "arguments";
    EXPECT_THAT(runScript("f=$1; shift; printf '[%s]' \"$@\" > \"$f\"",
                    { file, "-f", "--", "a b", "", "$HOME", "`id`", "*", "\n", "\xFF" }),
        Optional(0));
    EXPECT_EQ(bytesOfFile(file), text("[-f][--][a b][][$HOME][`id`][*][\n][\xFF]"));
}

TEST(KXLinuxTaskRunner, EnvironmentIsKept)
{
    ASSERT_EQ(::setenv("KXMD_TEST_VARIABLE", "kept", 1), 0);
    EXPECT_THAT(runScript("test \"$KXMD_TEST_VARIABLE\" = kept"), Optional(0));
    ::unsetenv("KXMD_TEST_VARIABLE");
    EXPECT_THAT(runScript("test -z \"$KXMD_TEST_VARIABLE\""), Optional(0));
}

TEST(KXLinuxTaskRunner, StreamsAndWorkingFolderAreKept)
{
    for (int const stream : { 0, 1, 2 }) {
        std::array<char, 4096> ours {};
        std::string const link = "/proc/self/fd/" + std::to_string(stream);
        ASSERT_GT(::readlink(link.c_str(), ours.data(), ours.size() - 1), 0);
        EXPECT_THAT(runScript("test \"$(readlink /proc/$$/fd/$1)\" = \"$2\"",
                        { std::to_string(stream), ours.data() }),
            Optional(0));
    }
    EXPECT_THAT(
        runScript("test \"$(pwd -P)\" = \"$1\"", { files::current_path().string() }), Optional(0));
}

TEST(KXLinuxTaskRunner, WaitsForTheEnd)
{
    auto const start = std::chrono::steady_clock::now();
    EXPECT_THAT(runScript("sleep 0.3"), Optional(0));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST(KXLinuxTaskRunner, BlockedSignalsOfTheCallerAreNotHandedOn)
{
    TemporaryFolder const folder;
    sigset_t signals, before;
    sigfillset(&signals);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, &before), 0);
    std::string const blocked = signalsOfChild("SigBlk", folder.path());
    auto const status = runScript("kill -TERM $$; sleep 5");
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
    EXPECT_EQ(blocked, std::string(16, '0'));
    EXPECT_EQ(status, std::nullopt);
}

TEST(KXLinuxTaskRunner, BrokenPipesEndTheProgramAsUsual)
{
    auto* const before = std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(runScript("kill -PIPE $$"), std::nullopt);
    std::signal(SIGPIPE, before);
}

TEST(KXLinuxTaskRunner, RunsSeveralAtOnce)
{
    std::vector<Status> results(8);
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < results.size(); ++i)
            threads.emplace_back(
                [&results, i] { results[i] = runScript("exit " + std::to_string(i)); });
    }
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_THAT(results[i], Optional(static_cast<int>(i)));
}

TEST(KXLinuxTaskRunner, StandsInForTheConverterThatIsMissing)
{
    if (::access("/usr/bin/afconvert", X_OK) == 0)
        GTEST_SKIP() << "this machine has a converter of its own";
    EXPECT_THAT(run("/usr/bin/afconvert", { "/no/such/source", "/no/such/target" }), Optional(1));
    EXPECT_THAT(run("/usr/bin/afconvert", {}), Optional(2));
    EXPECT_EQ(run("/usr/local/bin/afconvert", {}), std::nullopt); // For no other path.
}
