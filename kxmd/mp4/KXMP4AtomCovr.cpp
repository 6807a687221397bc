#include "kxmd/mp4/KXMP4AtomCovr.h"

#include "kxmd/platform/KXPictureSize.h"

void KXMP4AtomCovr::parseAtomSpecificData(KXAbstractData& data)
{
    // The first "data" atom, as iTunes writes it: size, type, type indicator, locale, picture.
    constexpr std::uint32_t headerSize = 16;
    constexpr std::uint32_t typeJPEG = 13, typePNG = 14;
    std::uint32_t dataSize;
    std::optional<std::string> dataType;
    std::uint32_t pictureType;
    if (!data.readUInt32To(dataSize, KXSwap::yes)
        || !data.readStringTo(dataType, 4, KXStringEncodingLatin1) || *dataType != "data"
        || !data.readUInt32To(pictureType, KXSwap::yes)
        || (pictureType != typeJPEG && pictureType != typePNG))
        return;
    data.skipBytes(4); // Locale.
    // In 32 bits: a size below 16 wraps to a length that is refused next.
    std::uint32_t const pictureLength = dataSize - headerSize;
    if (!pictureLength || pictureLength >= size())
        return;
    if (auto const pictureSize = sizeOfEncodedPictureInData(data, pictureLength))
        setAlbumCoverSize(*pictureSize);
}
