#pragma once

#include "kxmd/base/KXAbstractData.h"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

/// Takes the next bytes of a PNG file; false when it wants no more of them.
using KXPNGFeed = std::function<bool(std::span<std::uint8_t const> bytes)>;

/// `feedPNGTo:data:length:` Gives the PNG file (ISO/IEC 15948) in the next `length` bytes of `data`
/// to `feed`, piece by piece; false when it could not be given up to its end.
///
/// Whatever a first look at the picture does not need is left out, since decoders would keep it:
/// the chunks of text unpack to a thousand times their length each.
bool feedPNGTo(KXPNGFeed const& feed, KXAbstractData& data, std::uint64_t length);

/// `exifInPNG:length:` The block of Exif in the same file, which programs put before or after the
/// pixels; empty when there is none. `data` stays where it is.
std::vector<std::uint8_t> exifInPNG(KXAbstractData& data, std::uint64_t length);
