#pragma once

#include <string_view>

/// Whether the system would take `path` for another one: for what precedes the zero in it.
inline bool KXIsCutShortByZero(std::string_view path)
{
    return path.find('\0') != std::string_view::npos;
}
