#pragma once

#include "kxmd/host/KXExport.h"
#include "kxmd/host/KXSize.h"
#include "kxmd/platform/KXImage.h"

/// `shrinkImage:toSize:` The picture shrunk to whole points within `size`, with its proportions;
/// itself when it fits. Null for a size that no picture can have.
[[nodiscard]] KX_EXPORT KXImage::Ref shrinkImageToSize(KXImage::Ref const& image, KXSize size);
