#include "kxmd/mp4/atoms/KXMP4AtomSDExtAvcc.h"

std::string KXMP4AtomSDExtAvcc::description() const
{
    return descriptionWithProfileOfCodec(KXMDCodecAVC) + " Level:" + std::to_string(level());
}

void KXMP4AtomSDExtAvcc::parseAtomSpecificData(KXAbstractData& data)
{
    if (data.readUInt8OrZero() != 1) // Configuration version.
        return;
    setProfile(data.readUInt8OrZero());
    data.skipBytes(1); // Profile compatibility.
    setLevel(data.readUInt8OrZero());
}
