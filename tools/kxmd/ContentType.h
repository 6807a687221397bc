#pragma once

#include <string>

/// Whether the file at `path`, open as `descriptor`, is sound by its first bytes and its name, in a
/// format of whatever kind. Playlists are not.
bool isSound(std::string const& path, int descriptor);
