#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"

#include <cstdint>
#include <functional>
#include <span>

/// Takes the next bytes of a picture file; false when it wants no more of them.
using KXPictureFeed = std::function<bool(std::span<std::uint8_t const> bytes)>;

/// Gives the picture in the next `length` bytes of `data` to `feed`, piece by piece; false when it
/// could not be given whole.
///
/// Whatever a first look at the picture does not need is left out, since decoders would keep it: of
/// a PNG the chunks of text, which unpack to a thousand times their length each, of a GIF every
/// frame but the first. Of anything else no more is given than `mostPictureBytes`.
KX_EXPORT_FOR_TESTS bool feedPictureTo(
    KXPictureFeed const& feed, KXAbstractData& data, std::uint64_t length);

/// The same for a file that is no picture: gives the next `length` bytes as they are, but no more
/// than `mostPictureBytes`.
bool feedBytesTo(KXPictureFeed const& feed, KXAbstractData& data, std::uint64_t length);

/// The most that is read of a picture file, in bytes: most decoders keep all of it in memory.
constexpr std::uint64_t mostPictureBytes = std::uint64_t { 256 } << 20;
