#include "kxmd/platform/linux/system/KXLinuxTaskRunnerPrivate.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXPathPrivate.h"
#include "kxmd/base/KXPrintableText.h"
#include "kxmd/platform/KXLibraryFolderPrivate.h"
#include "kxmd/platform/linux/system/KXPipePrivate.h"
#include "kxmd/platform/linux/system/KXProgramStartPrivate.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <poll.h>
#include <string_view>
#include <sys/stat.h>
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

/// What a tool says.
struct Said {
    std::string start; ///< Up to the bound.
    std::string end; ///< The last bytes, enough for an exit status.

    /// Takes the next piece, once there is one; how many bytes it has, none at the end.
    std::size_t readPiece(int descriptor)
    {
        std::array<char, mostLogged> piece;
        ssize_t const count = ::read(descriptor, piece.data(), piece.size());
        if (count <= 0) // It did not wait, so no signal interrupted it.
            return 0;
        auto const length = static_cast<std::size_t>(count);
        start.append(piece.data(), std::min(length, mostLogged - start.size()));
        end.append(piece.data(), length);
        constexpr std::size_t enough = 8;
        end.erase(0, end.size() - std::min(end.size(), enough));
        return length;
    }
};

/// What a tool writes until it ends. All of it is read, so that the tool never waits for us; but we
/// do not wait for processes that it leaves behind holding the pipe open.
Said allThatIsSaidBy(pid_t tool, int descriptor)
{
    int const tellsTheEnd = ::pidfd_open(tool, 0); // None, -1, is passed over.
    pollfd waited[] { { descriptor, POLLIN, 0 }, { tellsTheEnd, POLLIN, 0 } };
    Said said;
    std::size_t left = 64 * 1024; // What a pipe holds, so all that the tool itself can have said.
    for (;;) {
        if (::poll(waited, std::size(waited), -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        bool const hasMore = waited[0].revents, isOver = waited[1].revents;
        if (isOver && (!hasMore || !left))
            break;
        std::size_t const count = hasMore ? said.readPiece(descriptor) : 0;
        if (hasMore && !count)
            break;
        if (isOver)
            left -= std::min(left, count);
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
            return std::nullopt; // The host reaped it.
    }
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

/// Whether the system forgets how children end, as it does for a host that ignores SIGCHLD.
bool areExitStatusesForgotten()
{
    struct sigaction action { };
    return ::sigaction(SIGCHLD, nullptr, &action) == 0
        && (action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT));
}

/// Runs a tool where the system forgets how it ends: a shell waits for it, and says its exit status
/// after all that it says itself. The tool is not asked to end with us: it would take the shell for
/// us.
void letShellTellStatusOf(KXProgramStart& program)
{
    std::vector<std::string> const shell { "/bin/sh", "-c",
        "\"$0\" \"$@\"; printf '\\n%d' $? >&2" };
    program.arguments.insert(program.arguments.begin(), shell.begin(), shell.end());
    program.variable.clear();
}

/// Takes the exit status off the end of what is said; absent when the tool was ended by a signal,
/// which a shell tells by numbers above 128.
std::optional<int> statusToldIn(Said& said)
{
    std::size_t const line = said.end.rfind('\n');
    int status = -1;
    if (line != std::string::npos)
        std::from_chars(&said.end[line] + 1, said.end.data() + said.end.size(), status);
    if (said.start.size() < mostLogged)
        said.start.resize(std::min(said.start.rfind('\n'), said.start.size()));
    return status >= 0 && status <= 128 ? std::optional(status) : std::nullopt;
}

bool isProgram(std::string const& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
        && ::access(path.c_str(), X_OK) == 0;
}

}

KXLinuxTaskRunner::Converter KXLinuxTaskRunner::Converter::ofThisMachine()
{
    return { "/usr/bin/afconvert", pathBesideLibrary(KXMD_CONVERTER) };
}

std::string KXLinuxTaskRunner::Converter::installedPath() const
{
    if (isProgram(path))
        return path;
    return isProgram(standIn) ? standIn : "";
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
    bool const isTold = areExitStatusesForgotten();
    if (isTold) {
        if (!isProgram(program.arguments.front()))
            return std::nullopt;
        letShellTellStatusOf(program);
    }
    auto const tool = program.start();
    pipe.closeWritingEnd();
    if (!tool)
        return std::nullopt;
    Said said = allThatIsSaidBy(*tool, pipe.readingEnd());
    auto const waited = exitStatusOf(*tool);
    auto const status = isTold ? statusToldIn(said) : waited;
    logLinesOf(said.start);
    return status;
}
