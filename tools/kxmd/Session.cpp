#include "Session.h"

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
    if (_outputIsGone)
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
    if (error != EPIPE) // A reader that has seen enough needs no message.
        reportError("standard output", std::strerror(error));
}

void Session::reportError(std::string_view path, std::string_view problem)
{
    _exitStatus = ExitStatus::someFileFailed;
    finish(); // So that an error on a terminal follows the results before it.
    std::string line = "kxmd: ";
    line.append(withoutControlCharacters(path)).append(": ").append(problem).append("\n");
    _standardError.writeLines(line);
}

void Session::reportUnreadable(std::string const& path) { reportError(path, whyUnreadable(path)); }

std::string withoutControlCharacters(std::string_view text)
{
    std::string shown(text);
    for (char& character : shown) {
        auto const code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7F)
            character = '?';
    }
    // The second half of them, U+0080 to U+009F, is two bytes in UTF-8.
    for (std::size_t at = 0; (at = shown.find('\xC2', at)) != std::string::npos; ++at) {
        if (at + 1 < shown.size() && static_cast<unsigned char>(shown[at + 1]) < 0xA0)
            shown.replace(at, 2, "?");
    }
    return shown;
}
