#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXFourCharacterCodePrivate.h"

#include <cstdint>

/// An atom within one that the tree keeps whole, such as the value of a tag.
struct KXMP4InnerAtom {
    KXFourCharacterCode type;
    std::uint64_t payload; ///< Where its payload begins.
    std::uint64_t end;

    std::uint64_t payloadLength() const { return end - payload; }
};

/// Shows `visit` the atoms between two positions of a file in turn, until it answers false or one
/// does not lie within its bounds. Each takes a step of the reader's budget.
template <class Visit>
void visitInnerAtoms(
    KXAbstractData& data, std::uint64_t position, std::uint64_t end, Visit const& visit)
{
    constexpr std::uint64_t headerSize = 8;
    while (position < end && end - position >= headerSize && data.budget().takeStep()) {
        data.setOffset(position);
        std::uint64_t const size = data.readUInt32OrZero(KXSwap::yes);
        KXFourCharacterCode const type(data.readUInt32OrZero(KXSwap::yes));
        if (size < headerSize || size > end - position)
            return;
        position += size;
        if (!visit(KXMP4InnerAtom { type, position - size + headerSize, position }))
            return;
    }
}
