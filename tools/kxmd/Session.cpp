#include "Session.h"

#include "shared/SourceFile.h"

#include <kxmd/base/KXPrintableText.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string whyUnreadable(std::string const& path)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        return std::strerror(errno);
    if (!S_ISREG(status.st_mode))
        return S_ISDIR(status.st_mode) ? "is a folder" : "is not a regular file";
    if (::access(path.c_str(), R_OK) != 0)
        return std::strerror(errno);
    return "cannot be opened";
}

}

bool Session::write(std::string_view text)
{
    if (_outputIsGone || _standardError.isSilent())
        return false;
    bool const isTaken = _standardError.withoutStatus(
        [text] { return std::fwrite(text.data(), 1, text.size(), stdout) == text.size(); });
    if (isTaken)
        return true;
    reportWriteError();
    return false;
}

void Session::finish()
{
    if (!_outputIsGone && std::fflush(stdout) != 0)
        reportWriteError();
}

void Session::reportWriteError()
{
    int const error = errno;
    _outputIsGone = true;
    _exitStatus = ExitStatus::someFileFailed;
    if (error != EPIPE) // A reader that stopped reading needs no message.
        reportError("standard output", std::strerror(error));
}

void Session::reportError(std::string_view path, std::string_view problem)
{
    _exitStatus = ExitStatus::someFileFailed;
    reportLine(path, problem, Emphasis::failure);
}

void Session::reportRemark(std::string_view path, std::string_view remark)
{
    reportLine(path, remark, Emphasis::remark);
}

void Session::reportLine(std::string_view path, std::string_view what, Emphasis emphasis)
{
    finish(); // On a terminal the error then follows the results before it.
    std::string line = emphasised("kxmd:", emphasis, Stream::error);
    line.append(" ")
        .append(KXTextWithoutControlCharacters(path))
        .append(": ")
        .append(KXTextWithoutControlCharacters(what))
        .append("\n");
    _standardError.writeLines(line);
}

bool Session::reportReadError(std::string_view path, std::error_code error)
{
    if (error)
        reportError(path, problemOfReading(error));
    return static_cast<bool>(error);
}

void Session::reportUnreadable(std::string const& path) { reportError(path, whyUnreadable(path)); }
