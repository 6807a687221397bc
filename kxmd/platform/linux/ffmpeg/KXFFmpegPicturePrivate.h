#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/image/KXImage.h"

#include <cstdint>
#include <string>
#include <vector>

/// `pictureByFFmpeg:length:wantedSize:` The picture in the next `length` bytes of `data`, the
/// largest one of an icon. Null when it is of no format that FFmpeg tells by its first bytes, or
/// cannot be decoded. Neither side comes smaller than that of `wantedSize`, unless it is stored so.
KXImage::Ref pictureByFFmpeg(KXAbstractData& data, std::uint64_t length, KXSize wantedSize);

/// `formatsOfPicturesByFFmpeg` Short names of those that this machine's FFmpeg decodes.
std::vector<std::string> formatsOfPicturesByFFmpeg();
