#include "kxmd/platform/linux/render/KXRenderServerPrivate.h"

#include "kxmd/base/KXFileDataPrivate.h"
#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXStandardFilesPrivate.h"
#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/platform/KXLibraryFolderPrivate.h"
#include "kxmd/platform/linux/render/KXSealedMemoryPrivate.h"
#include "kxmd/platform/linux/system/KXProgramStartPrivate.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds longestStart { 20 };

struct SocketPair {
    KXFileDescriptor ours;
    KXFileDescriptor theirs;
};

std::optional<SocketPair> newSocketPair()
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return std::nullopt;
    SocketPair pair { KXFileDescriptor(KXAboveStandardFiles(ends[0])),
        KXFileDescriptor(KXAboveStandardFiles(ends[1])) };
    return pair.ours.isOpen() && pair.theirs.isOpen() ? std::optional(std::move(pair))
                                                      : std::nullopt;
}

/// Waits until there is something to receive, or nobody left to send it; false after `time`.
bool waitFor(int socket, std::chrono::nanoseconds time)
{
    auto const end = Clock::now() + time;
    for (;;) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waited { socket, POLLIN, 0 };
        int const ready = ::poll(&waited, 1,
            static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max())));
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

/// The variables that our programs get: none that tells of the user, but those that tell them where
/// fonts and file types are.
std::vector<std::string> environmentOfServer()
{
    std::vector<std::string> variables { "LANG=C.UTF-8", "PATH=/usr/bin:/bin" };
    for (char const* const name :
        { "FONTCONFIG_FILE", "FONTCONFIG_PATH", "XDG_DATA_DIRS", "LD_LIBRARY_PATH" }) {
        if (char const* const value = std::getenv(name))
            variables.push_back(std::string(name) + '=' + value);
    }
    return variables;
}

void waitForStarter(pid_t process)
{
    while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) { }
}

/// The next `length` bytes of `data` in a file in memory, as far as there are any; none when they
/// are more than any picture has.
KXFileDescriptor memoryFileOf(KXAbstractData& data, std::uint64_t length)
{
    constexpr std::uint64_t pieceLength = 64 * 1024;
    std::uint64_t left = length <= mostPictureBytes ? std::min(length, data.remainingLength()) : 0;
    std::vector<std::uint8_t> piece(static_cast<std::size_t>(std::min(left, pieceLength)));
    KXFileDescriptor file = newMemoryFile();
    bool isWritten = file.isOpen();
    while (isWritten && left) {
        std::uint64_t const count
            = data.readBytesToMaxLength(piece.data(), std::min(left, pieceLength));
        if (!count)
            break;
        isWritten = writeToMemoryFile(
            file.get(), std::span(piece).first(static_cast<std::size_t>(count)));
        left -= count;
    }
    if (!isWritten || !sealMemoryFile(file.get()))
        throw std::bad_alloc();
    return file;
}

}

std::optional<KXRenderMessage> KXRenderTask::answer()
{
    auto const begin = Clock::now();
    bool const isThere = waitFor(_socket.get(), _timeLeft);
    _timeLeft -= Clock::now() - begin;
    auto message = isThere ? receiveRenderMessage(_socket.get()) : std::nullopt;
    if (!message)
        _socket = KXFileDescriptor(); // And so it is killed.
    return message;
}

std::optional<KXRenderMessage> KXRenderTask::answerTo(KXRenderQuestion const& question)
{
    if (!_socket.isOpen() || !sendRenderMessage(_socket.get(), question))
        return std::nullopt;
    return answer();
}

KXRenderServer::KXRenderServer(std::string program)
    : _program(std::move(program))
{
}

KXRenderServer::~KXRenderServer() = default;

std::string KXRenderServer::installedProgram(std::string_view name)
{
    return pathBesideLibrary(std::string(name));
}

bool KXRenderServer::Connection::isAlive() const
{
    pollfd state { socket.get(), 0, 0 };
    return ::poll(&state, 1, 0) == 0;
}

std::optional<KXRenderServer::Reply> KXRenderServer::replyTo(
    KXRenderRequest request, KXAbstractData& data, KXRenderLimits const& limits) const
{
    request.start = data.offset();
    if (auto const* const file = dynamic_cast<KXFileData const*>(&data))
        return replyTo(request, file->descriptor(), limits);
    KXFileDescriptor const memory = memoryFileOf(data, request.length);
    data.setOffset(std::exchange(request.start, 0));
    return replyTo(request, memory.get(), limits);
}

std::optional<KXRenderServer::Reply> KXRenderServer::replyTo(
    KXRenderRequest request, int file, KXRenderLimits const& limits) const
{
    request.seconds
        = static_cast<std::uint32_t>(std::chrono::ceil<std::chrono::seconds>(limits.time).count());
    request.memory = limits.memory;
    std::shared_ptr<Connection const> broken;
    for (int tries = 0; tries < 2; ++tries) {
        auto const server = connection(broken.get());
        if (!canServe(server.get(), limits))
            return std::nullopt;
        auto pair = newSocketPair();
        if (!pair)
            throw std::bad_alloc(); // Of descriptors.
        std::array const files { file, pair->theirs.get() };
        bool const isSent
            = sendRenderMessage(server->socket.get(), std::as_bytes(std::span(&request, 1)), files);
        pair->theirs = KXFileDescriptor(); // So that the end of the other process is seen.
        KXRenderTask task(std::move(pair->ours), limits.time);
        auto message = isSent ? task.answer() : std::nullopt;
        auto const answer = message ? message->as<KXRenderAnswer>() : std::nullopt;
        if (answer)
            return Reply { std::move(task), std::move(*message), *answer };
        if (message || server->isAlive())
            return std::nullopt;
        broken = server; // It had ended for want of requests, or somebody killed it.
    }
    return std::nullopt;
}

std::optional<KXRenderGreeting> KXRenderServer::greeting() const
{
    auto const server = connection(nullptr);
    return server ? std::optional(server->greeting) : std::nullopt;
}

/// Whether there is a server that may be given files. What there is to say is said here, and not
/// while the server is started: a log sink may itself ask for a picture.
bool KXRenderServer::canServe(Connection const* server, KXRenderLimits const& limits) const
{
    if (!server) {
        logOnce("Nothing can be decoded: %s does not start", _program.c_str());
        return false;
    }
    KXRenderGreeting const& greeting = server->greeting;
    if (greeting.isConfinedToReading && greeting.canBeConfinedToComputing)
        return true;
    logOnce("Decoders are not fully confined: the kernel has no %s",
        greeting.isConfinedToReading ? "seccomp" : "Landlock");
    return !limits.requiresConfinement;
}

void KXRenderServer::logOnce(char const* format, char const* word) const
{
    if (!_isLogged.exchange(true))
        KXLog("Metadata", format, word);
}

/// The way to the server, which is started when there is none but `broken`.
std::shared_ptr<KXRenderServer::Connection const> KXRenderServer::connection(
    Connection const* broken) const
{
    auto current = _connection.lock();
    // A process that was forked from the host starts its own: this one goes with its host.
    if (!*current || current->get() == broken || (*current)->host != ::getpid())
        *current = newConnection();
    return *current;
}

std::shared_ptr<KXRenderServer::Connection const> KXRenderServer::newConnection() const
{
    auto pair = newSocketPair();
    if (!pair)
        return nullptr;
    // It writes to its standard output and reads from it.
    KXProgramStart const program { .arguments = { _program },
        .target = pair->theirs.get(),
        .isApart = true,
        .environment = environmentOfServer() };
    auto const starter = program.start();
    pair->theirs = KXFileDescriptor();
    if (!starter)
        return nullptr;
    waitForStarter(*starter);
    // It says so once its decoders are loaded: that is not to count as the first file's time.
    auto const message = waitFor(pair->ours.get(), longestStart)
        ? receiveRenderMessage(pair->ours.get())
        : std::nullopt;
    auto const greeting = message ? message->as<KXRenderGreeting>() : std::nullopt;
    if (!greeting)
        return nullptr;
    return std::make_shared<Connection const>(
        Connection { std::move(pair->ours), ::getpid(), *greeting });
}
