#include "kxmd/mp4/atoms/KXMP4AtomSDExtD263.h"

std::string KXMP4AtomSDExtD263::description() const
{
    return descriptionWithProfileOfCodec(KXMDCodecH263) + " Level:" + std::to_string(level());
}

void KXMP4AtomSDExtD263::parseAtomSpecificData(KXAbstractData& data)
{
    data.skipBytes(5); // Vendor, decoder version.
    setLevel(data.readUInt8OrZero());
    setProfile(data.readUInt8OrZero());
}
