#pragma once

#include "kxmd/base/KXGuarded.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// The album cover in the tag list of iTunes. The picture itself is not kept, and of JPEG and PNG
/// not even read beyond its header.
class KX_EXPORT KXMP4AtomCovr final : public KXMP4Atom {
public:
    /// `albumCoverSize` Size in pixels of the first picture; 0 by 0 when it is missing, neither
    /// declared JPEG nor PNG, or cannot be decoded.
    [[nodiscard]] KXSize albumCoverSize() const { return _albumCoverSize.load(); }
    /// `setAlbumCoverSize:` Replaces the size, as one unit.
    void setAlbumCoverSize(KXSize size) { _albumCoverSize.store(size); }

    void parseAtomSpecificData(KXAbstractData& data) override;

private:
    KXGuarded<KXSize, KXByteLock> _albumCoverSize;
};
