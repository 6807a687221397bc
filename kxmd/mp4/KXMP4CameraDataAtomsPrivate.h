#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <optional>

/// The atoms that hold a camera's data, in the order in which they are removed; `data` reads the
/// file that `root` is the tree of. Absent, and logged, if they are too many to remove.
[[nodiscard]] std::optional<KXMP4Atom::List> cameraDataAtoms(KXMP4Atom& root, KXAbstractData& data);
