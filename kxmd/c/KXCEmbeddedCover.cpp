// The cover of a file as it is embedded.

#include "kxmd/c/KXCEmbeddedCoverPrivate.h"

#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/image/KXPictureSizePrivate.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp3/KXMP3PicturePrivate.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/atoms/KXMP4TagValuePrivate.h"

#include <memory>
#include <utility>

namespace {

/// The next `length` bytes; none unless their headers are those of a picture.
KXData pictureIn(KXAbstractData& data, std::uint64_t length)
{
    KXData bytes(bytesOfPicture(data, length));
    auto const reader = KXAbstractData::abstractDataWithData(bytes);
    return sizeOfEncodedPictureInData(*reader, bytes.length()) ? bytes : KXData();
}

/// The first front cover, or else the first other picture.
KXData coverOfMP3(KXMDFileMetaMP3 const& meta, KXAbstractData& data)
{
    KXData other;
    auto const frames = meta.allFramesWithTag(meta.albumCoverTag());
    for (auto const& frame : frames.value_or(KXMDFileMetaMP3Frame::List())) {
        auto const picture = KXMP3Picture::pictureOfFrame(*frame, data);
        if (!picture || (!picture->isFrontCover() && other.length()))
            continue;
        KXData bytes = pictureIn(*picture->data(), picture->data()->remainingLength());
        if (bytes.length() && picture->isFrontCover())
            return bytes;
        if (bytes.length())
            other = std::move(bytes);
    }
    return other;
}

KXData coverOfMP4(KXMP4Atom& root, KXAbstractData& data)
{
    for (auto const& cover : root.allAtomsWithPath(coverPath)) {
        data.setOffset(cover->offset());
        if (cover->size() > data.remainingLength())
            continue;
        std::uint64_t const length = skipCoverAtomHeaders(data, cover->size());
        KXData bytes = pictureIn(data, length);
        if (bytes.length())
            return bytes;
    }
    return {};
}

}

KXData KXCEmbeddedCover(KXMDFileMeta const& meta, KXAbstractData& data)
{
    if (auto const* const mp3 = dynamic_cast<KXMDFileMetaMP3 const*>(&meta))
        return coverOfMP3(*mp3, data);
    auto const root = meta.mp4Atom();
    return root ? coverOfMP4(*root, data) : KXData();
}
