#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "kxmd/mp4/atoms/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/atoms/KXMP4ChunkTablePrivate.h"

#include <algorithm>

namespace {

/// How many entries of a chunk offset table there are in the buffer; 0 for any other atom.
std::uint64_t entriesWithin(KXMutableData const& data, KXMP4Atom const& atom)
{
    auto const* const table = dynamic_cast<KXMP4AtomSampleTable const*>(&atom);
    if (!table)
        return 0;
    std::uint64_t const start = std::min(table->offset(), data.length());
    std::uint64_t const room = (data.length() - start) / KXMP4ChunkTable::entrySize;
    return std::min<std::uint64_t>(table->noOfEntries(), room);
}

}

bool KXMP4Atom::removeSelfFromMutableData(KXMutableData& data)
{
    if (_isOutOfTree || !data.removeBytesAt(_offset, _size))
        return false;
    auto const difference = -static_cast<std::int64_t>(_size);
    Ref const self = weak_from_this().lock(); // The parent may be the last owner.
    KXMP4Atom* const parent = _parent;
    bool isDone = true;
    if (parent) {
        isDone = parent->adjustSizeInMutableData(difference, data);
        parent->removeChild(*this);
    }
    isDone &= rootAtom()->adjustOffsetInMutableData(difference, _offset, data);
    _isOutOfTree = parent;
    _parent = nullptr;
    return isDone;
}

bool KXMP4Atom::insertBeforeSelfInMutableData(
    KXMutableData& data, std::span<std::uint8_t const> atomData)
{
    std::uint64_t const position = _offset;
    if (_isOutOfTree || position >= data.length() || !data.insertBytesAt(atomData, position))
        return false;
    auto const difference = static_cast<std::int64_t>(atomData.size());
    bool isDone = !_parent || _parent->adjustSizeInMutableData(difference, data);
    isDone &= rootAtom()->adjustOffsetInMutableData(difference, position, data);
    return isDone;
}

bool KXMP4Atom::adjustSizeInMutableData(std::int64_t difference, KXMutableData& data)
{
    bool isDone = true;
    for (KXMP4Atom* atom = this; atom; atom = atom->_parent) {
        atom->_size += static_cast<std::uint64_t>(difference);
        if (atom->_parent)
            isDone
                &= data.replaceUInt32AtWith(atom->_offset, static_cast<std::uint32_t>(atom->_size));
    }
    return isDone;
}

bool KXMP4Atom::adjustOffsetInMutableData(
    std::int64_t difference, std::uint64_t start, KXMutableData& data)
{
    // Tables that lie in each other have more entries than the file has room for.
    std::uint64_t entriesLeft = data.length() / KXMP4ChunkTable::entrySize;
    bool areAdjusted = true;
    visitDepthFirst([&](KXMP4Atom& atom, std::size_t) {
        if (atom._offset >= start)
            atom._offset += static_cast<std::uint64_t>(difference);
        std::uint64_t const entries = entriesWithin(data, atom);
        areAdjusted = entries <= entriesLeft && atom.adjustOwnOffsets(difference, start, data);
        entriesLeft -= std::min(entries, entriesLeft);
        return areAdjusted;
    });
    return areAdjusted;
}

bool KXMP4Atom::adjustOwnOffsets(std::int64_t, std::uint64_t, KXMutableData&) { return true; }
