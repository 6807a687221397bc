#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// Whether the tag list that covers are inserted into has a tag to insert one before.
[[nodiscard]] bool hasPlaceForMP4Cover(KXMP4Atom& root);

/// Makes what is missing of the way from the movie to a tag, by replacing the movie's user data,
/// and corrects sizes and offsets. False when nothing is missing, there is no movie, or its
/// metadata is of another kind than that of iTunes, with nothing changed; false as well when a size
/// or an offset cannot be corrected.
bool makePlaceForMP4Cover(KXMutableData::Ref const& data);
