#include "kxmd/mp4/atoms/KXMP4AtomSampleTable.h"

#include "kxmd/mp4/atoms/KXMP4ChunkTablePrivate.h"

void KXMP4AtomSampleTable::parseAtomSpecificData(KXAbstractData& data)
{
    data.skipBytes(4); // Version and flags.
    _noOfEntries = data.readUInt32OrZero(KXSwap::yes);
    data.skipBytes(KXMP4ChunkTable::entrySize * _noOfEntries);
}

bool KXMP4AtomSampleTable::adjustOwnOffsets(
    std::int64_t difference, std::uint64_t start, KXMutableData& data)
{
    std::uint32_t count;
    if (!data.readUInt32ToAt(count, offset() + KXMP4ChunkTable::entryCountOffset))
        return false;
    std::uint64_t cursor = offset() + KXMP4ChunkTable::entriesOffset;
    for (std::uint32_t i = 0; i < count; ++i, cursor += KXMP4ChunkTable::entrySize) {
        std::uint32_t chunkOffset;
        if (!data.readUInt32ToAt(chunkOffset, cursor))
            return false;
        if (chunkOffset < start)
            break;
        auto const moved = chunkOffset + static_cast<std::uint64_t>(difference);
        if (!data.replaceUInt32AtWith(cursor, static_cast<std::uint32_t>(moved))) // In 32 bits.
            return false;
    }
    return true;
}
