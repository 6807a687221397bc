#pragma once

#include "kxmd/image/KXImage.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// `pictureOfIconWithMask:index:picture:` The picture at `index` of an icon of Windows, transparent
/// where the mask that follows its pixels says so: FFmpeg leaves it out. The same picture where
/// there is no such mask: it is a PNG, has an alpha channel in use, or is cut off.
KXImage::Ref pictureOfIconWithMask(
    std::span<std::uint8_t const> icon, std::size_t index, KXImage::Ref picture);
