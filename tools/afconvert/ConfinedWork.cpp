#include "ConfinedWork.h"

#include "FFmpegRefs.h"
#include "kxmd/platform/linux/render/program/KXConfinementPrivate.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <new>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

/// A new one, in memory that this process shares with those that it forks.
WorkProgress* newProgress()
{
    static_assert(WorkProgress::is_always_lock_free);
    void* const memory = ::mmap(
        nullptr, sizeof(WorkProgress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    return new (memory) WorkProgress(0);
}

/// Does the work in this process, which was forked for it, and tells what went wrong.
[[noreturn]] void workAlone(WorkLimits const& limits,
    std::function<void(WorkProgress&)> const& work, WorkProgress& progress, int tell, pid_t starter)
{
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != starter) // It has died before that.
        ::_exit(EXIT_FAILURE);
    (void)confineToReading();
    limitProcess(
        static_cast<std::uint32_t>(limits.seconds + limits.secondsOfAudio / 4) + 1, limits.memory);
    rlimit const longestFile { limits.longestFile, limits.longestFile };
    (void)::setrlimit(RLIMIT_FSIZE, &longestFile);
    bool const isConfined = !canConfineToComputing() || confineToComputing();
    try {
        if (!isConfined)
            throw std::bad_alloc();
        work(progress);
        ::_exit(EXIT_SUCCESS);
    } catch (std::bad_alloc const&) {
        constexpr std::string_view words = "there is not enough memory";
        (void)!::write(tell, words.data(), words.size());
    } catch (std::exception const& error) {
        std::string_view const words = error.what();
        (void)!::write(tell, words.data(), words.size());
    }
    ::_exit(EXIT_FAILURE);
}

double processorSecondsOf(pid_t process)
{
    clockid_t clock;
    timespec time {};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0)
        return 0;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Watches a process that nobody vouches for.
class Watch {
public:
    Watch(pid_t process, WorkLimits const& limits, WorkProgress const& progress)
        : _process(process)
        , _limits(limits)
        , _progress(progress)
    {
    }

    /// Whether it has had enough time.
    bool isOver()
    {
        double const told = _progress.load();
        double const audio = told > 0 ? std::min(told, _limits.secondsOfAudio) : 0; // Not NaN.
        double const used = processorSecondsOf(_process);
        auto const now = std::chrono::steady_clock::now();
        if (used > _used) {
            _used = used;
            _lastWork = now;
        }
        return used > _limits.seconds + audio / 4 || now - _lastWork > longestRest;
    }

private:
    static constexpr std::chrono::minutes longestRest { 10 }; // A disk or a card may be slow.

    pid_t const _process;
    WorkLimits const& _limits;
    WorkProgress const& _progress;
    double _used { 0 };
    std::chrono::steady_clock::time_point _lastWork { std::chrono::steady_clock::now() };
};

/// What the process says until it ends, up to a bound; absent when it takes too long and is killed.
std::optional<std::string> wordsFrom(int pipe, pid_t process, Watch watch)
{
    constexpr int interval = 250; // Milliseconds between two looks at the clock.
    constexpr std::size_t mostWords = 1024;
    std::string words;
    pollfd waited { pipe, POLLIN, 0 };
    for (;;) {
        if (watch.isOver()) {
            ::kill(process, SIGKILL);
            return std::nullopt;
        }
        if (::poll(&waited, 1, interval) <= 0)
            continue;
        std::array<char, mostWords> piece;
        ssize_t const count = ::read(pipe, piece.data(), piece.size());
        if (count == 0 || (count < 0 && errno != EINTR))
            return words;
        words.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        words.resize(std::min(words.size(), mostWords));
    }
}

bool isSuccess(pid_t process)
{
    int status = -1;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) { }
    return status == 0;
}

}

ConfinedWork::ConfinedWork(WorkLimits const& limits, std::function<void(WorkProgress&)> const& work)
    : _limits(limits)
    , _progress(newProgress())
{
    pid_t const starter = ::getpid();
    if (_words.isOpen())
        _process = ::fork();
    if (_process == 0)
        workAlone(limits, work, *_progress, _words.writingEnd(), starter);
    _words.closeWritingEnd();
}

ConfinedWork::~ConfinedWork()
{
    if (_process > 0) {
        ::kill(_process, SIGKILL);
        (void)isSuccess(_process);
    }
    ::munmap(_progress, sizeof *_progress);
}

void ConfinedWork::finish()
{
    if (_process <= 0)
        throw ConversionError("cannot be converted: there are no more processes");
    auto const words
        = wordsFrom(_words.readingEnd(), _process, Watch(_process, _limits, *_progress));
    bool const isDone = isSuccess(std::exchange(_process, -1));
    if (!words)
        throw ConversionError("takes too long");
    if (!isDone || !words->empty())
        throw ConversionError(words->empty() ? "cannot be decoded" : *words);
}
