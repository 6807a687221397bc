#include "Terminal.h"

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

namespace {

std::string_view variable(char const* name)
{
    char const* const value = std::getenv(name);
    return value ? value : "";
}

/// Asked once for each stream, since thousands of lines may be written.
bool showsColours(Stream stream)
{
    auto const ask = [](int descriptor) {
        return variable("NO_COLOR").empty() && isTerminalWithControls(descriptor);
    };
    static bool const output = ask(STDOUT_FILENO), error = ask(STDERR_FILENO);
    return stream == Stream::output ? output : error;
}

/// Bold, or one of the eight colours that each user may choose.
std::string_view sequenceFor(Emphasis emphasis)
{
    switch (emphasis) {
    case Emphasis::heading:
        return "\x1b[1m";
    case Emphasis::change:
        return "\x1b[32m"; // Green.
    case Emphasis::remark:
        return "\x1b[33m"; // Yellow.
    case Emphasis::failure:
        break;
    }
    return "\x1b[1;31m"; // Bold red.
}

}

bool isTerminalWithControls(int descriptor)
{
    std::string_view const kind = variable("TERM");
    return !kind.empty() && kind != "dumb" && ::isatty(descriptor);
}

std::string emphasised(std::string_view text, Emphasis emphasis, Stream stream)
{
    if (!showsColours(stream))
        return std::string(text);
    return std::string(sequenceFor(emphasis)).append(text).append("\x1b[0m");
}

std::string helpInColours(std::string_view help)
{
    std::string text;
    bool isAfterEmptyLine = false;
    while (!help.empty()) {
        auto const line = help.substr(0, help.find('\n'));
        help.remove_prefix(std::min(line.size() + 1, help.size()));
        if (line.empty() && isAfterEmptyLine)
            continue;
        isAfterEmptyLine = line.empty();
        bool const isHeading = !line.starts_with(' ') && line.ends_with(':');
        text += isHeading ? emphasised(line, Emphasis::heading) : std::string(line);
        text += '\n';
    }
    return text;
}
