#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/image/KXImage.h"

#include <memory>
#include <vector>

/// The JPEG files of pictures, each kept for as long as its picture lives elsewhere. No lock of its
/// own.
class KX_EXPORT KXMDEncodedPictures {
public:
    /// `jpgOfImage:` The JPEG file of `image` that was kept; empty when there is none.
    [[nodiscard]] KXData jpgOfImage(KXImage::Ref const& image) const;

    /// `setJPG:ofImage:` Keeps `jpg` as the JPEG file of `image`, and lets go of those whose
    /// pictures are gone.
    void setJPGOfImage(KXData jpg, KXImage::Ref const& image);

private:
    struct Entry {
        std::weak_ptr<KXImage const> image;
        KXData jpg;
    };
    std::vector<Entry> _entries;
};
