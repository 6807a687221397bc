#pragma once

#include <optional>
#include <string>

/// The file that `path` stands for: whoever names a link means what it leads to, be it there or
/// not. Absent for links that lead back to themselves.
std::optional<std::string> pathWithoutLinks(std::string const& path);
