#pragma once

#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegRefsPrivate.h"

#include <cstdint>

/// How decoded pixels become a picture to look at.
struct KXFFmpegPresentation {
    AVRational pixelAspect { 1, 1 }; ///< Width by height of one pixel.
    std::int32_t const* displayMatrix { nullptr }; ///< ISO/IEC 14496-12, 8.3.2: 3 by 3, or null.
};

/// `frame` upright in sRGB, with the proportions that it is shown with, within `maximumSize` unless
/// that is empty. Null when it cannot be converted.
KXImage::Ref imageOfFrame(
    AVFrame const& frame, KXFFmpegPresentation const& presentation, KXSize maximumSize);
