#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"

#include <cstdint>
#include <optional>

/// `sizeOfEncodedPictureInData:length:` The size in pixels of the picture in the next `length`
/// bytes: a JPEG, PNG, GIF, BMP, TIFF, WebP, AVIF or HEIF.
///
/// Measured by a walk over its headers; only as much is read as that takes. Of several pictures in
/// one file the main one counts, or the first. AVIF and HEIF are measured as they are shown, turned
/// and cropped, every other format as it is stored. Absent when fewer than `length` bytes are left,
/// when they are no picture or one whose headers are damaged, or when the reader's budget is spent.
/// Leaves the read position anywhere.
[[nodiscard]] KX_EXPORT std::optional<KXSize> sizeOfEncodedPictureInData(
    KXAbstractData& data, std::uint64_t length);
