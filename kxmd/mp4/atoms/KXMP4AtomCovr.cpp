#include "kxmd/mp4/atoms/KXMP4AtomCovr.h"

#include "kxmd/image/KXPictureSizePrivate.h"
#include "kxmd/mp4/atoms/KXMP4TagValuePrivate.h"

void KXMP4AtomCovr::parseAtomSpecificData(KXAbstractData& data)
{
    auto const pictureLength = readTagPictureLength(data);
    if (!pictureLength || *pictureLength >= size())
        return;
    if (auto const pictureSize = sizeOfEncodedPictureInData(data, *pictureLength))
        setAlbumCoverSize(*pictureSize);
}
