#pragma once

#include <string>
#include <string_view>

/// `text` with each control character replaced by "?": a name in a file can neither break the line
/// that it stands in nor steer the terminal.
std::string withoutControlCharacters(std::string_view text);
