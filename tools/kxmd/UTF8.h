#pragma once

#include <cstddef>
#include <string_view>

/// How many bytes of `text` are UTF-8, from its start on: up to the first that belongs to no
/// character (Unicode, table 3-7), or is zero, which no name contains.
std::size_t lengthOfUTF8(std::string_view text);

inline bool isUTF8(std::string_view text) { return lengthOfUTF8(text) == text.size(); }
