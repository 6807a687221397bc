#include "kxmd/thumbnails/KXMDEncodedPictures.h"

#include <utility>

namespace {

/// By identity: a picture that took the place of a dead one in memory is another one.
bool isSame(std::weak_ptr<KXImage const> const& one, KXImage::Ref const& other)
{
    return !one.owner_before(other) && !other.owner_before(one);
}

}

KXData KXMDEncodedPictures::jpgOfImage(KXImage::Ref const& image) const
{
    for (Entry const& entry : _entries) {
        if (isSame(entry.image, image))
            return entry.jpg;
    }
    return {};
}

void KXMDEncodedPictures::setJPGOfImage(KXData jpg, KXImage::Ref const& image)
{
    std::erase_if(_entries, [&image](Entry const& entry) {
        return entry.image.expired() || isSame(entry.image, image);
    });
    _entries.push_back({ image, std::move(jpg) });
}
