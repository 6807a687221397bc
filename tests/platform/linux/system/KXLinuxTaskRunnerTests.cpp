#include "kxmd/platform/linux/system/KXLinuxTaskRunnerPrivate.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/platform/KXPlatform.h"

#include "support/FileLimit.h"
#include "support/Files.h"
#include "support/Interruptions.h"
#include "support/LogCapture.h"
#include "support/OpenFiles.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::StartsWith;
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
    EXPECT_EQ(run(std::string("/bin/true\0and more", 18), {}), std::nullopt);
    EXPECT_EQ(run("/bin/true", { "first", std::string("se\0cond", 7) }), std::nullopt);
    EXPECT_EQ(run("/", {}), std::nullopt);
    EXPECT_EQ(run("sh", { "-c", "exit 0" }), std::nullopt); // No search by name.
    std::string const notExecutable = folder.write("program", text("#!/bin/sh\n"));
    EXPECT_EQ(run(notExecutable, {}), std::nullopt);
    ASSERT_EQ(::chmod(notExecutable.c_str(), 0700), 0);
    EXPECT_THAT(run(notExecutable, {}), Optional(0));
}

TEST(KXLinuxTaskRunner, StartsNothingWhenNoPipeCanBeOpened)
{
    TemporaryFolder const folder;
    std::string const mark = folder.path() / "mark";
    {
        FileLimit const limit;
        EXPECT_EQ(run("/bin/mkdir", { mark }), std::nullopt);
    }
    EXPECT_FALSE(files::exists(mark));
}

TEST(KXLinuxTaskRunner, KernelMayNotTellTheEndOfProcesses)
{
    // As before Linux 5.3. The end is then that of what is said.
    pid_t const host = ::fork();
    if (host == 0) {
        ::alarm(20);
        sock_filter calls[] {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pidfd_open, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        sock_fprog const filter { std::size(calls), calls };
        ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
            ::_exit(0); // Nothing can be refused here.
        LogCapture const log;
        bool const isWell = runScript("echo said >&2; exit 5") == 5
            && log.lines() == std::vector<std::string> { "Metadata: said" };
        ::_exit(isWell ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(host, &status, 0), host);
    EXPECT_EQ(status, 0);
}

TEST(KXLinuxTaskRunner, LeavesNoFileOpen)
{
    auto const before = countOfOpenFiles();
    EXPECT_THAT(runScript("exit 0"), Optional(0));
    EXPECT_EQ(countOfOpenFiles(), before);
    EXPECT_EQ(run("/no/such/program", {}), std::nullopt);
    EXPECT_EQ(countOfOpenFiles(), before);
    EXPECT_EQ(run("/bin/true", { std::string("se\0cond", 7) }), std::nullopt);
    EXPECT_EQ(countOfOpenFiles(), before);
}

namespace {

/// A host that lets the system forget how its children end.
class ForgettingHost {
public:
    explicit ForgettingHost(int flags)
    {
        struct sigaction action { };
        action.sa_handler = flags ? SIG_DFL : SIG_IGN;
        action.sa_flags = flags;
        ::sigaction(SIGCHLD, &action, &_before);
    }
    ~ForgettingHost() { ::sigaction(SIGCHLD, &_before, nullptr); }

private:
    struct sigaction _before { };
};

}

TEST(KXLinuxTaskRunner, HostsThatForgetTheirChildrenGetTheStatus)
{
    for (int const flags : { 0, SA_NOCLDWAIT }) {
        SCOPED_TRACE(flags);
        ForgettingHost const host(flags);
        for (int const status : { 0, 1, 2, 127, 128 }) {
            LogCapture const log;
            EXPECT_THAT(runScript("echo one >&2; echo two >&2; exit " + std::to_string(status)),
                Optional(status));
            EXPECT_THAT(log.lines(), ElementsAre("Metadata: one", "Metadata: two"));
        }
        LogCapture const log;
        EXPECT_THAT(runScript("exit 3"), Optional(3));
        EXPECT_THAT(log.lines(), IsEmpty());
        EXPECT_EQ(runScript("ulimit -c 0; kill -KILL $$"), std::nullopt);
        EXPECT_EQ(run("/no/such/program", {}), std::nullopt);
        EXPECT_EQ(run("/tmp", {}), std::nullopt);
        // Far more than is logged, and without an end of its last line.
        EXPECT_THAT(runScript("head -c 300000 /dev/zero | tr '\\0' x >&2; exit 7"), Optional(7));
    }
}

TEST(KXLinuxTaskRunner, ArgumentsReachToolsOfSuchHostsAsTheyAre)
{
    TemporaryFolder const folder;
    std::string const file = folder.path() / "file";
    ForgettingHost const host(0);
    std::string const odd = "a 'b' \"c\" $HOME `d` \n*";
    EXPECT_THAT(runScript("printf %s \"$1\" > \"$2\"", { odd, file }), Optional(0));
    EXPECT_EQ(bytesOfFile(file), text(odd));
}

TEST(KXLinuxTaskRunner, WaitingKeepsNoProcessorBusy)
{
    auto const busy = processorTimeOf([] { EXPECT_THAT(runScript("sleep 0.5"), Optional(0)); });
    EXPECT_LT(busy, std::chrono::milliseconds(200));
}

TEST(KXLinuxTaskRunner, SignalsToUsDoNotDisturbIt)
{
    LogCapture const log;
    Interruptions const interruptions;
    EXPECT_THAT(runScript("sleep 0.2; echo said >&2; exec 2>&-; sleep 0.2; exit 4"), Optional(4));
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: said"));
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

TEST(KXLinuxTaskRunner, WorkingFolderAndProcessGroupAreKept)
{
    EXPECT_THAT(
        runScript("test \"$(pwd -P)\" = \"$1\"", { files::current_path().string() }), Optional(0));
    // The fifth field of /proc/PID/stat; the shell's name has no blank.
    EXPECT_THAT(runScript("read -r a b c d group rest < /proc/$$/stat; test $group = $1",
                    { std::to_string(::getpgrp()) }),
        Optional(0));
}

TEST(KXLinuxTaskRunner, NothingIsReadAndOnlyStandardErrorIsHeard)
{
    LogCapture const log;
    EXPECT_THAT(runScript("read -r line && exit 1; echo said; "
                          "test $(readlink /proc/$$/fd/0) = /dev/null || exit 2; "
                          "test $(readlink /proc/$$/fd/1) = /dev/null || exit 3"),
        Optional(0));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KXLinuxTaskRunner, SeesNoFileOfOurs)
{
    int const descriptor = ::open("/dev/null", O_RDONLY); // Left open for other programs.
    ASSERT_GE(descriptor, 0);
    // Its standard files, and the folder that is listed.
    EXPECT_THAT(run("/bin/sh", { "-c", "test $(ls /proc/self/fd | wc -l) = 4" }), Optional(0));
    ::close(descriptor);
}

TEST(KXLinuxTaskRunner, WhatIsSaidIsLoggedLineByLine)
{
    LogCapture const log;
    EXPECT_THAT(
        runScript("printf '%s\\n\\n' 'first %s%n' >&2; printf 'second\\r\\nlast' >&2; exit 3"),
        Optional(3));
    EXPECT_THAT(
        log.lines(), ElementsAre("Metadata: first %s%n", "Metadata: second", "Metadata: last"));
}

TEST(KXLinuxTaskRunner, WhatIsSaidInPiecesIsOneText)
{
    LogCapture const log;
    EXPECT_THAT(runScript("printf a >&2; sleep 0.1; printf 'b\\nc\\nd' >&2"), Optional(0));
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: ab", "Metadata: c", "Metadata: d"));
}

TEST(KXLinuxTaskRunner, WhatIsSaidBeforeASignalIsLogged)
{
    LogCapture const log;
    EXPECT_EQ(runScript("echo last words >&2; kill -KILL $$"), std::nullopt);
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: last words"));
}

TEST(KXLinuxTaskRunner, WhatIsSaidCannotSteerTheTerminal)
{
    LogCapture const log;
    // Escape, bell, zero, delete, and U+009B, by which sequences begin as well; then é and two
    // bytes that are not UTF-8, as names may have.
    EXPECT_THAT(
        runScript("printf 'a\\033[31m\\007\\000\\177\\302\\2332J \\303\\251\\377\\302A' >&2"),
        Optional(0));
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: a?[31m????2J é??A"));
}

TEST(KXLinuxTaskRunner, MuchThatIsSaidNeitherBlocksNorFillsTheLog)
{
    LogCapture const log;
    EXPECT_THAT(runScript("head -c 3000000 /dev/zero | tr '\\0' x >&2"), Optional(0));
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: " + std::string(4096, 'x')));
}

TEST(KXLinuxTaskRunner, ToolMayCloseWhatItIsHeardBy)
{
    auto const start = std::chrono::steady_clock::now();
    EXPECT_THAT(runScript("exec 2>&-; sleep 0.3; exit 4"), Optional(4));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST(KXLinuxTaskRunner, WhatAToolLeavesBehindIsNotWaitedFor)
{
    auto const start = std::chrono::steady_clock::now();
    {
        LogCapture const log;
        EXPECT_THAT(runScript("sleep 20 & echo said >&2; exit 0"), Optional(0));
        EXPECT_THAT(log.lines(), ElementsAre("Metadata: said"));
        EXPECT_THAT(runScript("yes >&2 & exit 0"), Optional(0)); // Ends by its broken pipe.
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST(KXLinuxTaskRunner, HostMayHaveClosedItsStandardFiles)
{
    // In a process of its own, which the test framework needs no file of. Whichever files are
    // missing, the pipe takes their numbers.
    for (int closed = 1; closed < 8; ++closed) {
        pid_t const host = ::fork();
        if (host == 0) {
            std::string said;
            KXSetLogSink([&said](std::string_view, std::string_view text) { said += text; });
            for (int number : { 0, 1, 2 }) {
                if (closed & 1 << number)
                    ::close(number);
            }
            auto const status = runScript("read -r line || echo heard >&2; echo unheard; exit 5");
            ::_exit(status == 5 && said == "heard" ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(host, &status, 0), host);
        EXPECT_EQ(status, 0) << closed;
    }
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

TEST(KXLinuxTaskRunner, HangUpThatIsIgnoredStaysIgnored)
{
    auto* const before = std::signal(SIGHUP, SIG_IGN);
    EXPECT_THAT(runScript("kill -HUP $$; exit 6"), Optional(6));
    std::signal(SIGHUP, SIG_DFL);
    EXPECT_EQ(runScript("kill -HUP $$; exit 6"), std::nullopt);
    std::signal(SIGHUP, before);
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

TEST(KXLinuxTaskRunner, OnlyOurConverterIsAskedToEndWithUs)
{
    EXPECT_THAT(runScript("test -z \"$KXMD_CONVERTER_PARENT\""), Optional(0));
}

TEST(KXLinuxTaskRunner, MissingConverterIsStoodInForByOneThatEndsWithUs)
{
    auto const runner
        = KXLinuxTaskRunner::Converter { "/no/such/converter", "/bin/sh" }.taskRunner();
    ::setenv("KXMD_CONVERTER_PARENT", "another", 1);
    ::setenv("KXMD_CONVERTER_PARENTS", "kept", 1);
    LogCapture const log;
    EXPECT_THAT(runner->runToolAtPath("/no/such/converter",
                    { "-c",
                        "tr '\\0' '\\n' < /proc/$$/environ | grep ^KXMD_CONVERTER_ | sort >&2\n"
                        "read -r a b c d group rest < /proc/$$/stat; test $group = $$" }),
        Optional(0));
    ::unsetenv("KXMD_CONVERTER_PARENT");
    ::unsetenv("KXMD_CONVERTER_PARENTS");
    EXPECT_THAT(log.lines(),
        ElementsAre("Metadata: KXMD_CONVERTER_PARENT=" + std::to_string(::getpid()),
            "Metadata: KXMD_CONVERTER_PARENTS=kept"));
    EXPECT_EQ(runner->runToolAtPath("/no/such/program", { "-c", "exit 0" }), std::nullopt);
}

TEST(KXLinuxTaskRunner, ConverterOfTheMachineNeedsNoOther)
{
    auto const runner = KXLinuxTaskRunner::Converter { "/bin/sh", "/bin/false" }.taskRunner();
    EXPECT_THAT(
        runner->runToolAtPath("/bin/sh", { "-c", "test -z \"$KXMD_CONVERTER_PARENT\"; exit 7" }),
        Optional(7));
}

#ifdef KXMD_HAS_CONVERTER
TEST(KXLinuxTaskRunner, StandsInForTheConverterThatIsMissing)
{
    if (::access("/usr/bin/afconvert", X_OK) == 0)
        GTEST_SKIP() << "this machine has a converter of its own";
    LogCapture const log;
    EXPECT_THAT(run("/usr/bin/afconvert", { "/no/such/source", "/no/such/target" }), Optional(1));
    EXPECT_THAT(log.lines(), ElementsAre(StartsWith("Metadata: afconvert: /no/such/source: ")));
    EXPECT_THAT(run("/usr/bin/afconvert", {}), Optional(2));
    EXPECT_EQ(run("/usr/local/bin/afconvert", {}), std::nullopt); // For no other path.
}
#endif
