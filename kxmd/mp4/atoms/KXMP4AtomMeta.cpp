#include "kxmd/mp4/atoms/KXMP4AtomMeta.h"

void KXMP4AtomMeta::parseAtomSpecificData(KXAbstractData& data)
{
    std::uint64_t const start = data.offset();
    if (data.readUInt32OrZero(KXSwap::yes) != 0)
        data.setOffset(start); // The size of the first child.
}
