#include "kxmd/mp4/atoms/KXMP4AtomStsd.h"

KXMDCodecInfo::List KXMP4AtomStsd::codecsInfo() const
{
    KXMDCodecInfo::List codecs;
    for (auto const& child : children())
        codecs.push_back(child->codecInfo().value_or(KXMDCodecInfo()));
    return codecs;
}

void KXMP4AtomStsd::parseAtomSpecificData(KXAbstractData& data)
{
    _version = data.readUInt8OrZero();
    if (_version != 0) // The children begin right here.
        return;
    data.skipBytes(3); // Flags.
    _noOfSampleDescriptions = data.readUInt32OrZero(KXSwap::yes);
}
