#pragma once

#include "kxmd/image/KXImage.h"

#include <cstddef>
#include <cstdint>
#include <span>

// What FFmpeg leaves out or gets wrong of Windows icons. Its streams are the entries of the icon's
// directory, in the same order.

/// `pixelsOfIconEntry:index:` How many pixels the picture at `index` has, as the directory says; 0
/// past its end.
std::uint32_t pixelsOfIconEntry(std::span<std::uint8_t const> icon, std::size_t index);

/// `forgetColourCountsOfIcon:` Clears the numbers of colours in the directory. Many are wrong, and
/// FFmpeg trusts them more than the pictures' own headers.
void forgetColourCountsOfIcon(std::span<std::uint8_t> icon);

/// `pictureOfIconWithMask:index:picture:` The picture at `index`, transparent where the mask that
/// follows its pixels says so. The same picture where there is no such mask: it is a PNG or
/// compressed, has an alpha channel in use, or is cut off.
KXImage::Ref pictureOfIconWithMask(
    std::span<std::uint8_t const> icon, std::size_t index, KXImage::Ref picture);
