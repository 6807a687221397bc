#include "kxmd/mp4/KXMP4AtomSampleTable.h"

void KXMP4AtomSampleTable::parseAtomSpecificData(KXAbstractData& data)
{
    constexpr std::uint64_t entrySize = 4;
    data.skipBytes(4); // Version and flags.
    _noOfEntries = data.readUInt32OrZero(KXSwap::yes);
    data.skipBytes(entrySize * _noOfEntries);
}
