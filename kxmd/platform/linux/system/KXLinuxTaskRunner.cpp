#include "kxmd/platform/linux/system/KXLinuxTaskRunnerPrivate.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXPathPrivate.h"
#include "kxmd/base/KXPrintableText.h"
#include "kxmd/platform/linux/system/KXLibraryFolderPrivate.h"
#include "kxmd/platform/linux/system/KXPipePrivate.h"
#include "kxmd/platform/linux/system/KXProgramStartPrivate.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern "C" {
#include <sys/pidfd.h> // Does not say by itself that it is C before glibc 2.37.
}

namespace {

constexpr std::size_t mostLogged = 4096; // Bytes of what one run of a tool says.

/// Asks our converter to end with this process, which it must not do when others start it. The
/// kernel ends it with the thread that started it, which waits for it here.
std::string requestToEndWithUs() { return "KXMD_CONVERTER_PARENT=" + std::to_string(::getpid()); }

/// Takes the next piece of what a tool says, once there is one; it is kept up to the bound. False
/// at the end.
bool readPieceTo(std::string& said, int descriptor)
{
    std::array<char, mostLogged> piece;
    ssize_t const count = ::read(descriptor, piece.data(), piece.size());
    if (count <= 0) // It did not wait, so no signal interrupted it.
        return false;
    said.append(piece.data(), std::min(static_cast<std::size_t>(count), mostLogged - said.size()));
    return true;
}

/// What a tool writes until it ends. All of it is read, so that the tool never waits for us; but we
/// do not wait for processes that it leaves behind holding the pipe open.
std::string allThatIsSaidBy(pid_t tool, int descriptor)
{
    int const tellsTheEnd = ::pidfd_open(tool, 0); // None, -1, is passed over.
    pollfd waited[] { { descriptor, POLLIN, 0 }, { tellsTheEnd, POLLIN, 0 } };
    std::string said;
    for (;;) {
        if (::poll(waited, std::size(waited), -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        bool const hasMore = waited[0].revents, isOver = waited[1].revents;
        if (isOver && (!hasMore || said.size() == mostLogged))
            break;
        if (hasMore && !readPieceTo(said, descriptor))
            break;
    }
    if (tellsTheEnd >= 0)
        ::close(tellsTheEnd);
    return said;
}

/// A tool repeats names, which may hold anything; none may steer the terminal that shows the log.
void logLinesOf(std::string_view said)
{
    while (!said.empty()) {
        std::string_view const line = said.substr(0, said.find_first_of("\r\n"));
        if (!line.empty())
            KXLog("Metadata", "%s", KXTextWithoutControlCharacters(line).c_str());
        said.remove_prefix(std::min(line.size() + 1, said.size()));
    }
}

/// Its exit status, once it is over; absent when it was ended by a signal.
std::optional<int> exitStatusOf(pid_t tool)
{
    int status;
    while (::waitpid(tool, &status, 0) < 0) {
        if (errno != EINTR)
            return std::nullopt; // The host reaped it, or ignores SIGCHLD.
    }
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}

KXLinuxTaskRunner::Converter KXLinuxTaskRunner::Converter::ofThisMachine()
{
    return { "/usr/bin/afconvert", pathBesideLibrary(KXMD_CONVERTER) };
}

std::shared_ptr<KXTaskRunner const> KXLinuxTaskRunner::Converter::taskRunner() const
{
    return std::make_shared<KXLinuxTaskRunner const>(*this);
}

KXLinuxTaskRunner::KXLinuxTaskRunner(Converter converter)
    : _converter(std::move(converter))
{
}

/// Whether our own converter is to stand in for the program at `path`.
bool KXLinuxTaskRunner::isMissingConverter(std::string const& path) const
{
    return path == _converter.path && ::access(path.c_str(), X_OK) != 0;
}

std::optional<int> KXLinuxTaskRunner::runToolAtPath(
    std::string const& path, std::vector<std::string> const& arguments) const
{
    KXPipe pipe;
    if (!pipe.isOpen() || KXIsCutShortByZero(path)
        || std::ranges::any_of(arguments, KXIsCutShortByZero))
        return std::nullopt;
    // What goes wrong is said on standard error; what else a tool may have to say, such as how far
    // it is, would only fill the log.
    KXProgramStart program {
        .arguments = { path }, .target = pipe.writingEnd(), .stream = STDERR_FILENO
    };
    if (isMissingConverter(path)) {
        program.arguments = { _converter.standIn };
        program.variable = requestToEndWithUs();
        // A terminal's interrupt is for us: were the converter to end first, its file would seem to
        // be at fault.
        program.isApart = true;
    }
    program.arguments.insert(program.arguments.end(), arguments.begin(), arguments.end());
    auto const tool = program.start();
    pipe.closeWritingEnd();
    if (!tool)
        return std::nullopt;
    std::string const said = allThatIsSaidBy(*tool, pipe.readingEnd());
    auto const status = exitStatusOf(*tool);
    logLinesOf(said);
    return status;
}
