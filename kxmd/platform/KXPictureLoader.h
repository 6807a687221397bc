#pragma once

#include "kxmd/host/KXAbstractData.h"
#include "kxmd/host/KXExport.h"
#include "kxmd/host/KXSize.h"

#include <cstdint>
#include <optional>

/// What a picture library does for us. Safe to call from several threads.
class KX_EXPORT KXPictureLoader {
public:
    virtual ~KXPictureLoader();

    /// `sizeOfPictureInData:length:` The size in pixels of the picture in the next `length` bytes
    /// of `data`; absent when they are no picture that the library knows, or one that tells its
    /// size only behind more bytes than these. Reads no more than it needs, and leaves the read
    /// position anywhere.
    [[nodiscard]] virtual std::optional<KXSize> sizeOfPictureInData(
        KXAbstractData& data, std::uint64_t length) const = 0;
};
