#pragma once

#include "kxmd/platform/linux/ffmpeg/KXFFmpegRefsPrivate.h"

#include <cstddef>
#include <cstdint>
#include <span>

inline std::span<AVStream* const> streamsOf(AVFormatContext const& format)
{
    return { format.streams, format.nb_streams };
}

/// Whether a stream is a picture beside what is played: a cover, or a thumbnail.
bool isAttachedPicture(AVStream const& stream);

/// The matrix by which frames of a stream are turned to be shown (ISO/IEC 14496-12, 8.3.2), 3 by 3;
/// null when it has none.
std::int32_t const* displayMatrixOf(AVStream const& stream);
