#pragma once

#include "FFmpegRefs.h"

#include <kxmd/base/KXAbstractData.h>
#include <optional>

/// A cover as the file stores it.
struct CoverPicture {
    AVCodecID format { AV_CODEC_ID_NONE };
    int width { 0 }; ///< In pixels, as the height.
    int height { 0 };
    AVPacketRef content;
};

/// The cover in the tag list of an MP4 file, by its own first bytes: FFmpeg passes over
/// those whose format the list leaves open, as older taggers did, or gets wrong. Absent when there
/// is none in a format of covers, or not all of it, and for other files.
std::optional<CoverPicture> coverOfMP4File(KXAbstractData& data);
