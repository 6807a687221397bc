#pragma once

#include "kxmd/mp4/safety/KXMP4EditSafety.h"

/// What `reasonAgainstEdit:` of `KXMP4EditSafety` answers for the file that `data` reads and an
/// edit that goes by the tree `root`. `isWhole` tells whether the parse of that tree stayed within
/// its budget.
[[nodiscard]] std::optional<std::string> reasonAgainstEditByTree(
    KXMP4EditSafety::Edit const& edit, KXAbstractData& data, KXMP4Atom& root, bool isWhole);
