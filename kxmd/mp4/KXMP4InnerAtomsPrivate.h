#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXFourCharacterCodePrivate.h"

#include <cstdint>

inline constexpr std::uint64_t atomHeaderSize = 8; ///< ISO/IEC 14496-12, 4.2: size and type.

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
    while (position < end && end - position >= atomHeaderSize && data.budget().takeStep()) {
        data.setOffset(position);
        std::uint64_t const size = data.readUInt32OrZero(KXSwap::yes);
        KXFourCharacterCode const type(data.readUInt32OrZero(KXSwap::yes));
        if (size < atomHeaderSize || size > end - position)
            return;
        position += size;
        if (!visit(KXMP4InnerAtom { type, position - size + atomHeaderSize, position }))
            return;
    }
}
