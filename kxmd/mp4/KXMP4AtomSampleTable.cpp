#include "kxmd/mp4/KXMP4AtomSampleTable.h"

namespace {

// From the atom's first byte.
constexpr std::uint64_t entryCountOffset = 12;
constexpr std::uint64_t entriesOffset = 16;
constexpr std::uint64_t entrySize = 4;

}

void KXMP4AtomSampleTable::parseAtomSpecificData(KXAbstractData& data)
{
    data.skipBytes(4); // Version and flags.
    _noOfEntries = data.readUInt32OrZero(KXSwap::yes);
    data.skipBytes(entrySize * _noOfEntries);
}

bool KXMP4AtomSampleTable::adjustOwnOffsets(
    std::int64_t difference, std::uint64_t start, KXMutableData& data)
{
    std::uint32_t count;
    if (!data.readUInt32ToAt(count, offset() + entryCountOffset))
        return false;
    std::uint64_t cursor = offset() + entriesOffset;
    for (std::uint32_t i = 0; i < count; ++i, cursor += entrySize) {
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
