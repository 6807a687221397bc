#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <vector>

/// Of each key in an atom of type "keys", in order, whether it names something that describes a
/// film or a song (QuickTime File Format, "Metadata item keys atom").
[[nodiscard]] std::vector<bool> descriptiveKeys(KXAbstractData& data, KXMP4Atom const& keys);
