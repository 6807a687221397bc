#include "kxmd/platform/linux/system/KXChildProcessPrivate.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

/// Attributes of the process to be: a group of its own, and no signal blocked or ignored.
class Attributes {
public:
    Attributes()
    {
        posix_spawnattr_init(&_attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&_attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&_attributes, &signals);
        posix_spawnattr_setpgroup(&_attributes, 0);
        posix_spawnattr_setflags(
            &_attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~Attributes() { posix_spawnattr_destroy(&_attributes); }
    Attributes(Attributes const&) = delete;
    Attributes& operator=(Attributes const&) = delete;

    posix_spawnattr_t const* get() const { return &_attributes; }

private:
    posix_spawnattr_t _attributes;
};

/// Files of the process to be: nothing to read, standard output into `output`, no other file of
/// ours.
class FileActions {
public:
    explicit FileActions(int output)
    {
        posix_spawn_file_actions_init(&_actions);
        // First of all: in a host that closed its standard files it may be one of these numbers.
        posix_spawn_file_actions_adddup2(&_actions, output, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&_actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&_actions, STDERR_FILENO + 1);
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&_actions); }
    FileActions(FileActions const&) = delete;
    FileActions& operator=(FileActions const&) = delete;

    posix_spawn_file_actions_t const* get() const { return &_actions; }

private:
    posix_spawn_file_actions_t _actions;
};

/// Owns one end of a pipe.
class Descriptor {
public:
    explicit Descriptor(int number)
        : _number(number)
    {
    }
    ~Descriptor() { close(); }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;

    int number() const { return _number; }
    void close()
    {
        if (_number >= 0)
            ::close(std::exchange(_number, -1));
    }

private:
    int _number;
};

pid_t spawn(std::vector<std::string> const& arguments, int output)
{
    std::vector<char*> pointers;
    for (auto const& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str())); // Only read.
    pointers.push_back(nullptr);
    pid_t process = -1;
    bool const isStarted = posix_spawn(&process, pointers[0], FileActions(output).get(),
                               Attributes().get(), pointers.data(), environ)
        == 0;
    return isStarted ? process : -1;
}

void limit(pid_t process, __rlimit_resource resource, std::uint64_t most)
{
    rlimit const limits { most, most };
    (void)prlimit(process, resource, &limits, nullptr); // The deadline holds in any case.
}

/// Milliseconds until `end`, for `poll`.
int timeUntil(Clock::time_point end)
{
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
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
        if (count < 0 && errno != EINTR)
            return false;
        if (bytes.size() > most)
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
        if (result != 0 && errno != EINTR)
            return errno == ECHILD; // A host that does not care for its children's ends.
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
            return true; // Taken away by the host; what it wrote has to tell.
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}

std::optional<KXData> KXChildProcess::run() const
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return std::nullopt;
    Descriptor const output(ends[0]);
    Descriptor input(ends[1]);
    auto const end = Clock::now() + deadline;
    pid_t const process = spawn(arguments, input.number());
    input.close();
    if (process < 0)
        return std::nullopt;

    // It runs already, but has not seen the file yet.
    limit(process, RLIMIT_CORE, 0);
    limit(process, RLIMIT_FSIZE, mostOutputBytes);
    if (mostMemoryBytes)
        limit(process, RLIMIT_DATA, mostMemoryBytes);

    std::vector<std::uint8_t> bytes;
    bool const isOver
        = readAllTo(bytes, output.number(), mostOutputBytes, end) && waitFor(process, end);
    bool const isWell = endProcess(process);
    if (!isOver || !isWell)
        return std::nullopt;
    return KXData(std::move(bytes));
}
