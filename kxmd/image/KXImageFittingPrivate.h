#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXImage.h"

/// `shrinkImage:toSize:` The picture shrunk to whole points within `size`, with its proportions;
/// itself when it fits. Null for a size that no picture can have.
[[nodiscard]] KX_EXPORT KXImage::Ref shrinkImageToSize(KXImage::Ref const& image, KXSize size);

/// `squareOfImage:size:` The largest centred square of the picture, stretched to exactly `size`;
/// the picture itself when it has that size. Null without a picture and for a size that no picture
/// can have.
[[nodiscard]] KX_EXPORT KXImage::Ref squareOfImage(KXImage::Ref const& image, KXSize size);
