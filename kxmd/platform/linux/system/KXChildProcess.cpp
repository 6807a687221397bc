#include "kxmd/platform/linux/system/KXChildProcessPrivate.h"

#include "kxmd/platform/linux/system/KXPipePrivate.h"
#include "kxmd/platform/linux/system/KXProgramStartPrivate.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

void limit(pid_t process, __rlimit_resource resource, std::uint64_t most)
{
    rlimit const limits { most, most };
    (void)prlimit(process, resource, &limits, nullptr); // The deadline holds in any case.
}

/// Milliseconds until `end`, for `poll`.
int timeUntil(Clock::time_point end)
{
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    constexpr int longest = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, longest));
}

/// Reads all until the writers are gone; false when there are more than `most` bytes or it takes
/// longer than until `end`.
bool readAllTo(
    std::vector<std::uint8_t>& bytes, int descriptor, std::uint64_t most, Clock::time_point end)
{
    constexpr std::size_t pieceLength = 64 * 1024;
    for (;;) {
        pollfd waited { descriptor, POLLIN, 0 };
        int const ready = ::poll(&waited, 1, timeUntil(end));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        std::size_t const before = bytes.size();
        bytes.resize(before + pieceLength);
        ssize_t const count = ::read(descriptor, bytes.data() + before, pieceLength);
        bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count < 0 || bytes.size() > most) // It did not wait, so no signal interrupted it.
            return false;
        if (count == 0)
            return true;
    }
}

/// Waits for the end of a process that closed its output; false when it is not over by `end`.
bool waitFor(pid_t process, Clock::time_point end)
{
    constexpr auto pause = std::chrono::milliseconds(1);
    for (;;) {
        siginfo_t state {};
        // Not yet taken from the system: its number stays its own until it is killed below.
        int const result
            = ::waitid(P_PID, static_cast<id_t>(process), &state, WEXITED | WNOHANG | WNOWAIT);
        if (result == 0 && state.si_pid == process)
            return true;
        if (result != 0)
            return errno == ECHILD; // The host ignores SIGCHLD.
        if (Clock::now() >= end)
            return false;
        timespec const time { 0, std::chrono::nanoseconds(pause).count() };
        ::nanosleep(&time, nullptr);
    }
}

/// Kills the process and what it started, and tells whether it had ended well by itself.
bool endProcess(pid_t process)
{
    ::kill(-process, SIGKILL);
    int status = 0;
    while (::waitpid(process, &status, 0) < 0) {
        if (errno != EINTR)
            return true; // The host reaped it; judge by what it wrote.
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}

std::optional<KXData> KXChildProcess::run() const
{
    KXPipe pipe;
    if (!pipe.isOpen())
        return std::nullopt;
    auto const end = Clock::now() + deadline;
    KXProgramStart const program {
        .arguments = arguments, .target = pipe.writingEnd(), .isApart = true
    };
    auto const started = program.start();
    pipe.closeWritingEnd();
    if (!started)
        return std::nullopt;
    pid_t const process = *started;

    // It is running, but has not seen the file yet.
    limit(process, RLIMIT_CORE, 0);
    limit(process, RLIMIT_FSIZE, mostOutputBytes);
    if (mostMemoryBytes)
        limit(process, RLIMIT_DATA, mostMemoryBytes);

    std::vector<std::uint8_t> bytes;
    bool const isOver
        = readAllTo(bytes, pipe.readingEnd(), mostOutputBytes, end) && waitFor(process, end);
    bool const isWell = endProcess(process);
    if (!isOver || !isWell)
        return std::nullopt;
    return KXData(std::move(bytes));
}
