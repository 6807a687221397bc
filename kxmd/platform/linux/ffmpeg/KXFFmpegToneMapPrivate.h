#pragma once

#include "kxmd/platform/linux/ffmpeg/KXFFmpegRefsPrivate.h"

/// Whether a transfer characteristic carries lights far brighter than white (ITU-R BT.2100).
bool isHighDynamicRange(AVColorTransferCharacteristic transfer);

/// `frame`, of RGBA with 16 bits in BT.2100 colours and `transfer`, as RGBA with 8 bits in sRGB:
/// up to half of white as it is, what is brighter pressed together. Null when there is no memory.
AVFrameRef toneMappedFrame(AVFrame const& frame, AVColorTransferCharacteristic transfer);
