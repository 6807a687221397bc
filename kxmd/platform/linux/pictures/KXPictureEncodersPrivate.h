#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/image/KXImage.h"

/// The picture as a JPEG file, on a white ground; empty when it cannot be encoded. The same picture
/// always gives the same bytes.
KXData jpegOfImage(KXImage const& image);

/// The picture as a PNG file; empty when it cannot be encoded.
KXData pngOfImage(KXImage const& image);
