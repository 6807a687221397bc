#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/core/KXMDFileMeta.h"

/// The bytes of the cover of the file that `data` reads and `meta` was parsed from: of the pictures
/// that `albumCoverFromData:` looks at, the first with the headers of one. Empty without any.
KXData KXCEmbeddedCover(KXMDFileMeta const& meta, KXAbstractData& data);
