#include "StandardError.h"

#include "Terminal.h"

#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::string_view eraseLine = "\r\x1b[K"; // ECMA-48, 8.3.41.

/// Standard error has no buffer, so one call is one write. Nobody can be told of a failure.
void write(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stderr); }

}

StandardError::Gap::Gap(std::string const& status)
    : _status(status)
{
    if (!_status.empty())
        write(eraseLine);
}

StandardError::Gap::~Gap()
{
    if (!_status.empty())
        write(_status);
}

void StandardError::writeLines(std::string_view lines)
{
    if (!_isSilent)
        withoutStatus([lines] { write(lines); });
}

void StandardError::showStatus(std::string status)
{
    auto shown = _status.lock();
    if (*shown == status || _isSilent)
        return;
    write(std::string(eraseLine) + status);
    *shown = std::move(status);
}

std::size_t StandardError::statusWidth() const
{
    if (_isQuiet || !isTerminalWithControls(STDERR_FILENO))
        return 0;
    constexpr std::size_t usualColumns = 80;
    winsize size {};
    bool const isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    // Some terminals go on to the next line as soon as the last column is filled.
    return (isKnown ? size.ws_col : usualColumns) - 1;
}
