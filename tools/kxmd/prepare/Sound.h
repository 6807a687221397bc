#pragma once

#include "PreparedSong.h"

#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/platform/KXMediaProbe.h>

/// Bytes of its sound once it is converted, by its duration; 0 when that is not known.
std::uint64_t convertedSizeOf(KXMediaProbe const& probe);

/// Adds what a playlist says of a song and only the movie library knows.
void addProbeTo(PreparedSong& song, KXMediaProbe const& probe);
