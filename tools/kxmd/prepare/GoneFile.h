#pragma once

#include <string>

/// Whether there is no file at `path` any more: nothing, or a folder. A path that cannot be looked
/// at is not gone.
bool isGone(std::string const& path);
