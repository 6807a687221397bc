#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// Whether a movie's tags say what a film or a song is: its title, who made it, what it belongs to,
/// its chapters. What cameras write by themselves does not count, and neither does an empty text.
///
/// `root` is the tree of the file that `data` reads, whose position moves.
[[nodiscard]] bool isMovieDescribed(KXMP4Atom& root, KXAbstractData& data);
