#pragma once

#include <span>
#include <string_view>

/// Whether `name` ends with one of `extensions`, given with their dots, in whatever case, and is
/// more than that.
bool hasExtensionOf(std::span<std::string_view const> extensions, std::string_view name);
