#include "kxmd/platform/linux/render/program/KXForkServerPrivate.h"

#include "kxmd/base/KXFileDataPrivate.h"
#include "kxmd/image/KXImageFittingPrivate.h"
#include "kxmd/platform/linux/render/KXSealedMemoryPrivate.h"
#include "kxmd/platform/linux/render/program/KXConfinementPrivate.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t mostProcesses = 64;

/// A process that serves a file, and our copy of its socket, by which we see when the host is gone.
struct Child {
    pid_t process;
    KXFileDescriptor socket;
};

/// Serves one request in this process, which was forked for it. Does not return.
[[noreturn]] void serveAlone(
    KXRenderWork const& work, KXRenderRequest const& request, KXRenderMessage const& message)
{
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int const file = ::dup(message.files[0].get()); // The reader closes what it is given.
    struct stat status { };
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        ::_exit(1);
    limitProcess(request.seconds + 1, request.memory);
    if (canConfineToComputing() && !confineToComputing())
        ::_exit(1);
    KXFileData data(file, static_cast<std::uint64_t>(status.st_size));
    data.setOffset(request.start);
    work.serve(request, data, KXRenderReply(message.files[1].get()));
    ::_exit(0); // Nothing of ours needs to be destroyed.
}

KXImage::Ref shaped(KXImage::Ref const& image, KXRenderRequest const& request)
{
    switch (request.shape) {
    case KXRenderRequest::Shape::whole:
        break;
    case KXRenderRequest::Shape::fitting:
        return shrinkImageToSize(image, request.wantedSize());
    case KXRenderRequest::Shape::square:
        return squareOfImage(image, request.wantedSize());
    }
    return image;
}

class Server {
public:
    Server(KXRenderWork const& work, KXFileDescriptor host, timespec longestIdleness)
        : _work(work)
        , _host(std::move(host))
        , _longestIdleness(longestIdleness)
    {
        sigset_t childEnded;
        sigemptyset(&childEnded);
        sigaddset(&childEnded, SIGCHLD);
        ::sigprocmask(SIG_BLOCK, &childEnded, &_signalsWhileWaiting);
        struct sigaction interrupting { };
        interrupting.sa_handler = [](int) {};
        ::sigaction(SIGCHLD, &interrupting, nullptr);
    }

    void run()
    {
        while (isHostThere()) {
            reap();
            std::erase_if(_children, [](Child const& child) { return child.process == 0; });
        }
        for (Child const& child : _children)
            ::kill(child.process, SIGKILL);
    }

private:
    /// Waits for what happens next, and serves it; false when there is nobody left to serve.
    bool isHostThere()
    {
        std::vector<pollfd> waited;
        short const wanted = _children.size() < mostProcesses ? POLLIN : short { 0 };
        waited.push_back({ _host.get(), wanted, 0 });
        for (Child const& child : _children)
            waited.push_back({ child.socket.get(), 0, 0 }); // Tells of the host's end alone.
        int const count = ::ppoll(waited.data(), waited.size(),
            _children.empty() ? &_longestIdleness : nullptr, &_signalsWhileWaiting);
        if (count < 0)
            return errno == EINTR;
        if (count == 0 || waited[0].revents & (POLLHUP | POLLERR))
            return false;
        for (std::size_t i = 0; i < _children.size(); ++i) {
            if (waited[i + 1].revents) {
                ::kill(_children[i].process, SIGKILL);
                _children[i].socket = KXFileDescriptor(); // Or the next wait ends at once.
            }
        }
        return !(waited[0].revents & POLLIN) || serveNext();
    }

    /// False when the host is gone.
    bool serveNext()
    {
        auto message = receiveRenderMessage(_host.get());
        if (!message)
            return false;
        auto const request = message->as<KXRenderRequest>();
        if (!request || message->files.size() != 2)
            return true; // The host sees its socket closed.
        pid_t const process = ::fork();
        if (process == 0) {
            _host = KXFileDescriptor(); // Neither this nor the sockets of others are its to hold.
            _children.clear();
            ::sigprocmask(SIG_SETMASK, &_signalsWhileWaiting, nullptr);
            serveAlone(_work, *request, *message);
        }
        if (process > 0)
            _children.push_back({ process, std::move(message->files[1]) });
        return true;
    }

    /// Closes the sockets of processes that ended, so that the host sees it.
    void reap()
    {
        for (pid_t process; (process = ::waitpid(-1, nullptr, WNOHANG)) > 0;) {
            for (Child& child : _children) {
                if (child.process == process)
                    child.process = 0;
            }
        }
    }

    KXRenderWork const& _work;
    KXFileDescriptor _host;
    timespec const _longestIdleness;
    sigset_t _signalsWhileWaiting;
    std::vector<Child> _children;
};

}

void KXRenderReply::send(KXRenderAnswer const& answer) const
{
    (void)sendRenderMessage(_socket, answer);
}

void KXRenderReply::send(KXRenderAnswer answer, std::span<std::uint8_t const> content) const
{
    KXFileDescriptor const file = sealedMemoryOf(content);
    std::array const files { file.get() };
    answer.outcome
        = file.isOpen() ? KXRenderAnswer::Outcome::done : KXRenderAnswer::Outcome::failed;
    answer.length = content.size();
    if (file.isOpen())
        (void)sendRenderMessage(_socket, answer, files);
    else
        send(answer);
}

void KXRenderReply::sendImage(KXImage::Ref const& image) const
{
    KXRenderAnswer answer { .outcome = KXRenderAnswer::Outcome::unknown };
    if (!image)
        return send(answer);
    answer.width = static_cast<std::uint32_t>(image->pixelWidth());
    answer.height = static_cast<std::uint32_t>(image->pixelHeight());
    send(answer, image->pixels());
}

void KXRenderReply::sendImageOf(
    KXAbstractData const& data, KXImage::Ref const& image, KXRenderRequest const& request) const
{
    if (data.readError())
        return send({ .outcome = KXRenderAnswer::Outcome::failed });
    sendImage(image ? shaped(image, request) : nullptr);
}

void KXRenderReply::sendBytes(std::span<std::uint8_t const> bytes) const
{
    if (bytes.empty())
        return send({ .outcome = KXRenderAnswer::Outcome::unknown });
    send({}, bytes);
}

void KXRenderReply::sendText(std::string_view text) const
{
    sendBytes({ reinterpret_cast<std::uint8_t const*>(text.data()), text.size() });
}

void KXRenderReply::sendWords(std::vector<std::string> const& words) const
{
    std::string text;
    for (std::string const& word : words)
        text += word + ' ';
    sendText(text);
}

std::optional<KXRenderQuestion> KXRenderReply::question() const
{
    auto const message = receiveRenderMessage(_socket);
    return message ? message->as<KXRenderQuestion>() : std::nullopt;
}

int runRenderServer(KXRenderWork const& work, timespec longestIdleness)
{
    // The host waits for its own child, which ends here: the server is nobody's to reap.
    pid_t const server = ::fork();
    if (server != 0)
        return server < 0;
    ::setsid();
    // What a library prints is not to get to the host.
    KXFileDescriptor host(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (::dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return 1;
    work.warmUp();
    KXRenderGreeting const greeting {
        .isConfinedToReading = confineToReading(),
        .canBeConfinedToComputing = canConfineToComputing(),
    };
    if (!sendRenderMessage(host.get(), greeting))
        return 1;
    Server(work, std::move(host), longestIdleness).run();
    return 0;
}
