#pragma once

#include "kxmd/host/KXAbstractData.h"
#include "kxmd/host/KXExport.h"
#include "kxmd/host/KXSize.h"

#include <cstdint>
#include <optional>

/// `sizeOfEncodedPictureInData:length:` The size in pixels of the picture in the next `length`
/// bytes.
///
/// JPEG and PNG are measured by a walk over their headers, everything else by the process-wide
/// platform's picture library; only as much is read as that takes. Absent when fewer than `length`
/// bytes are left, when they are no picture, or when the reader's budget is spent. Leaves the read
/// position anywhere.
[[nodiscard]] KX_EXPORT std::optional<KXSize> sizeOfEncodedPictureInData(
    KXAbstractData& data, std::uint64_t length);
