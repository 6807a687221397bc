// A render server whose decoder does what the first word of the file tells it to. What it tried and
// was refused it shows as a green pixel, what it could do as a red one.

#include "kxmd/platform/linux/render/KXSealedMemoryPrivate.h"
#include "kxmd/platform/linux/render/program/KXForkServerPrivate.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Pixel = std::vector<std::uint8_t>;

/// That which forks, told while it still may.
pid_t serverProcess = 0;

Pixel const red { 255, 0, 0, 255 };
Pixel const green { 0, 255, 0, 255 };

Pixel pixelOfNumber(int number)
{
    Pixel pixel(4);
    std::memcpy(pixel.data(), &number, pixel.size());
    return pixel;
}

bool reads(char const* path)
{
    char byte;
    int const file = ::open(path, O_RDONLY | O_CLOEXEC);
    return file >= 0 && ::read(file, &byte, 1) == 1;
}

bool writes(std::string const& path)
{
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600) >= 0
        || ::mkdir((path + "-folder").c_str(), 0700) == 0;
}

bool startsProcess()
{
    pid_t const process = ::fork();
    if (process == 0)
        ::_exit(0);
    return process > 0 || ::syscall(SYS_vfork) > 0;
}

bool connects()
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(9);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int const internet = ::socket(AF_INET, SOCK_STREAM, 0);
    int const local = ::socket(AF_UNIX, SOCK_STREAM, 0);
    int ends[2];
    return internet >= 0 || local >= 0 || ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0
        || ::connect(0, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

bool seesTheUser()
{
    return std::getenv("HOME") || std::getenv("USER") || std::getenv("KXMD_SECRET")
        || reads("/proc/self/environ");
}

bool startsProgram()
{
    char const* const words[] { "/bin/true", nullptr };
    ::execv(words[0], const_cast<char* const*>(words));
    return false; // It would have left no answer.
}

/// Uses memory and gives it back.
bool uses(std::size_t count)
{
    void* const memory
        = ::mmap(nullptr, count, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return false;
    ::munmap(memory, count);
    return true;
}

/// Sockets that are open beside the standard files.
int countOfSockets()
{
    int count = 0;
    struct stat status { };
    for (int file = STDERR_FILENO + 1; file < 64; ++file)
        count += ::fstat(file, &status) == 0 && S_ISSOCK(status.st_mode);
    return count;
}

int limitOf(int resource)
{
    rlimit limit {};
    ::getrlimit(static_cast<__rlimit_resource>(resource), &limit);
    return limit.rlim_cur == limit.rlim_max ? static_cast<int>(limit.rlim_max) : -1;
}

bool hasThread()
{
    bool isDone = false;
    std::thread([&isDone] { isDone = true; }).join();
    return isDone;
}

class HostileWork final : public KXRenderWork {
public:
    void warmUp() const override { serverProcess = ::getpid(); }

    void serve(KXRenderRequest const& request, KXAbstractData& data,
        KXRenderReply const& reply) const override
    {
        std::string order(static_cast<std::size_t>(
                              std::min<std::uint64_t>(request.length, data.remainingLength())),
            '\0');
        (void)data.readBytesTo(reinterpret_cast<std::uint8_t*>(order.data()), order.size());
        if (request.operation != KXRenderRequest::Operation::movie)
            return obey(order, reply);
        // A movie does it when it is asked for a picture, and tells before who it is.
        reply.send({ .outcome = KXRenderAnswer::Outcome::done,
            .duration = static_cast<double>(::getpid()) });
        while (reply.question())
            obey(order, reply);
    }

private:
    static void show(KXRenderReply const& reply, Pixel pixel)
    {
        reply.sendImage(KXImage::imageWithPixels(std::move(pixel), 1, 1));
    }

    static void tell(KXRenderReply const& reply, bool couldDo)
    {
        show(reply, couldDo ? red : green);
    }

    /// Sends an answer, or the first bytes of one, as it is.
    static void send(KXRenderReply const& reply, KXRenderAnswer const& answer,
        std::vector<int> const& files, std::size_t length = sizeof(KXRenderAnswer))
    {
        (void)sendRenderMessage(
            reply.socket(), std::as_bytes(std::span(&answer, 1)).first(length), files);
    }

    /// An answer that is not as it should be.
    static void lie(KXRenderReply const& reply, std::string const& how)
    {
        KXFileDescriptor const file = newMemoryFile();
        (void)writeToMemoryFile(file.get(), green);
        KXRenderAnswer answer { .outcome = KXRenderAnswer::Outcome::done,
            .width = 1,
            .height = 1,
            .length = green.size() };
        if (how == "unsealed")
            return send(reply, answer, { file.get() });
        if (how == "growing")
            ::fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_WRITE | F_SEAL_SEAL);
        else if (how == "shrinking")
            ::fcntl(file.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
        else
            (void)sealMemoryFile(file.get());
        if (how == "wide")
            answer.width = 2;
        if (how == "flat")
            answer.width = answer.height = 0;
        if (how == "huge")
            answer.width = answer.height = 0xFFFFFFFF;
        if (how == "long")
            answer.length = 1ull << 40;
        if (how == "short")
            answer.length = 3;
        if (how == "alone")
            return send(reply, answer, {});
        if (how == "twice")
            return send(reply, answer, { file.get(), file.get() });
        if (how == "input")
            return send(reply, answer, { STDIN_FILENO });
        send(reply, answer, { file.get() });
    }

    static void obey(std::string const& order, KXRenderReply const& reply)
    {
        std::size_t const space = order.find(' ');
        std::string const word = order.substr(0, space);
        std::string const argument = space == std::string::npos ? "" : order.substr(space + 1);
        std::map<std::string, std::function<bool()>> const attempts {
            { "read", [&] { return reads(argument.c_str()); } },
            { "write", [&] { return writes(argument); } },
            { "remove", [&] { return ::unlink(argument.c_str()) == 0; } },
            { "connect", connects },
            { "fork", startsProcess },
            { "exec", startsProgram },
            { "environment", seesTheUser },
            { "trace", [] { return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0; } },
            { "signal",
                [&] {
                    return ::kill(std::atoi(argument.c_str()), 0) == 0
                        || ::kill(serverProcess, 0) == 0;
                } },
            { "use", [&] { return uses(std::strtoull(argument.c_str(), nullptr, 10)); } },
            { "thread", hasThread },
        };
        if (auto const attempt = attempts.find(word); attempt != attempts.end())
            return tell(reply, attempt->second());
        if (word == "self")
            return show(reply, pixelOfNumber(::getpid()));
        if (word == "sockets")
            return show(reply, pixelOfNumber(countOfSockets()));
        if (word == "limit")
            return show(reply, pixelOfNumber(limitOf(std::atoi(argument.c_str()))));
        if (word == "server")
            return show(reply, pixelOfNumber(serverProcess));
        if (word == "lie")
            return lie(reply, argument);
        if (word == "tell")
            return reply.sendText(argument);
        if (word == "mute")
            return;
        if (word == "unknown")
            return reply.sendImage(nullptr);
        if (word == "crash")
            *static_cast<int volatile*>(nullptr) = 0;
        if (word == "abort")
            std::abort();
        for (std::atomic<bool> isLooping = word == "loop"; isLooping;) { }
        while (word == "sleep")
            ::pause();
        while (word == "flood")
            reply.send({ .outcome = KXRenderAnswer::Outcome::done });
        if (word == "nonsense")
            return send(reply, {}, {}, 7);
        show(reply, { 'a', 'b', 'c', 255 });
    }
};

}

/// By the name "hasty" it waits for requests for a fifth of a second, else for as long as usual.
int main(int, char** arguments)
{
    if (std::string_view(arguments[0]).ends_with("/hasty"))
        return runRenderServer(HostileWork(), { 0, 200'000'000 });
    return runRenderServer(HostileWork());
}
