#pragma once

#include <string_view>

/// Whether `path` holds a zero, at which the system would cut it off and open another file.
inline bool KXIsCutShortByZero(std::string_view path)
{
    return path.find('\0') != std::string_view::npos;
}
