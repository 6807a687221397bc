#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Whether an open file is a terminal that knows control sequences (ECMA-48).
bool isTerminalWithControls(int descriptor);

/// What a piece of text stands out for on a terminal.
enum class Emphasis : std::uint8_t { heading, change, remark, failure };

/// Where a text is written.
enum class Stream : std::uint8_t { output, error };

/// `text`, emphasised (ECMA-48, 8.3.117) if the stream is such a terminal and the variable NO_COLOR
/// does not forbid it; otherwise as it is. `text` has no control characters of its own.
std::string emphasised(std::string_view text, Emphasis emphasis, Stream stream = Stream::output);

/// The help that the parser of command lines makes, with its headings emphasised, and without the
/// second of two empty lines that it puts between some.
std::string helpInColours(std::string_view help);
