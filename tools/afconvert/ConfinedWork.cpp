#include "ConfinedWork.h"

#include "FFmpegRefs.h"
#include "kxmd/platform/linux/render/program/KXConfinementPrivate.h"
#include "kxmd/platform/linux/system/KXPipePrivate.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// The progress, in memory that this process shares with the one that it forks.
class SharedProgress {
public:
    SharedProgress()
    {
        void* const memory = ::mmap(nullptr, sizeof(WorkProgress), PROT_READ | PROT_WRITE,
            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::bad_alloc();
        _progress = new (memory) WorkProgress(0);
    }
    ~SharedProgress() { ::munmap(_progress, sizeof *_progress); }
    SharedProgress(SharedProgress const&) = delete;
    SharedProgress& operator=(SharedProgress const&) = delete;

    WorkProgress& get() const { return *_progress; }

private:
    static_assert(WorkProgress::is_always_lock_free);
    WorkProgress* _progress;
};

/// Does the work in this process, which was forked for it, and tells what went wrong.
[[noreturn]] void workAlone(WorkLimits const& limits,
    std::function<void(WorkProgress&)> const& work, WorkProgress& progress, int tell)
{
    constexpr std::uint32_t anySeconds = std::numeric_limits<std::int32_t>::max();
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)confineToReading();
    limitProcess(anySeconds, limits.memory);
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

/// Waits until the process says something or ends; kills it when it takes too long. True when it
/// did not.
bool waitForWords(pid_t process, int pipe, WorkLimits const& limits, WorkProgress const& progress)
{
    constexpr int interval = 250; // Milliseconds between two looks at the clock.
    pollfd waited { pipe, POLLIN, 0 };
    for (;;) {
        int const ready = ::poll(&waited, 1, interval);
        if (ready > 0 || (ready < 0 && errno != EINTR))
            return true;
        if (processorSecondsOf(process) > limits.seconds + progress.load() / 4) {
            ::kill(process, SIGKILL);
            return false;
        }
    }
}

/// What the process says until it ends, up to a bound.
std::string wordsFrom(int pipe)
{
    std::array<char, 1024> words;
    ssize_t count;
    do {
        count = ::read(pipe, words.data(), words.size());
    } while (count < 0 && errno == EINTR);
    return std::string(words.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
}

bool isSuccess(pid_t process)
{
    int status = -1;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) { }
    return status == 0;
}

}

void doConfined(WorkLimits const& limits, std::function<void(WorkProgress&)> const& work)
{
    SharedProgress const progress;
    KXPipe pipe;
    pid_t const process = pipe.isOpen() ? ::fork() : -1;
    if (process < 0)
        throw ConversionError("cannot be converted: there are no more processes");
    if (process == 0)
        workAlone(limits, work, progress.get(), pipe.writingEnd());
    pipe.closeWritingEnd();
    bool const isInTime = waitForWords(process, pipe.readingEnd(), limits, progress.get());
    std::string const words = wordsFrom(pipe.readingEnd());
    bool const isDone = isSuccess(process) && isInTime && words.empty();
    if (!isInTime)
        throw ConversionError("takes too long");
    if (!isDone)
        throw ConversionError(words.empty() ? "cannot be decoded" : words);
}
