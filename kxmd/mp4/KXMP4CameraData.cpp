#include "kxmd/mp4/KXMP4CameraData.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp4/KXMP4CameraDataAtomsPrivate.h"
#include "kxmd/mp4/KXMP4LargeAtomsPrivate.h"
#include "kxmd/mp4/KXMP4RemovalLimitPrivate.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace {

constexpr std::string_view metadataPaths[] {
    "moov/udta",
    "moov/meta",
    "moov/trak/udta",
    "moov/trak/meta",
};

// Atoms of any purpose, told apart by 16 bytes (ISO/IEC 14496-12, 11.1).
constexpr std::string_view extendedTypePaths[] { "uuid", "moov/uuid", "moov/trak/uuid" };

using ExtendedType = std::array<std::uint8_t, 16>;

// Others stay: what players need of encrypted and of spherical movies has this form as well.
constexpr ExtendedType removedExtendedTypes[] {
    // XMP (ISO 16684-3).
    { 0xBE, 0x7A, 0xCF, 0xCB, 0x97, 0xA9, 0x42, 0xE8, 0x9C, 0x71, 0x99, 0x94, 0x91, 0xE3, 0xAF,
        0xAC },
    // Canon: EXIF blocks with the model, the serial number and the place.
    { 0x85, 0xC0, 0xB6, 0x87, 0x82, 0x0F, 0x11, 0xE0, 0x81, 0x11, 0xF4, 0xCE, 0x46, 0x2B, 0x6A,
        0x48 },
    // Sony, "USMT": titles, dates and the model.
    { 0x55, 0x53, 0x4D, 0x54, 0x21, 0xD2, 0x4F, 0xCE, 0xBB, 0x88, 0x69, 0x5C, 0xFA, 0xC9, 0xC7,
        0x40 },
};

bool isRemovedExtendedType(KXMP4Atom const& atom, KXAbstractData& data)
{
    std::uint64_t const headerSize = hasLargeSize(atom, data) ? 16 : 8;
    ExtendedType type;
    data.setOffset(atom.offset() + headerSize);
    return atom.size() >= headerSize + type.size() && data.readBytesTo(type.data(), type.size())
        && std::ranges::find(removedExtendedTypes, type) != std::end(removedExtendedTypes);
}

std::optional<KXMP4Atom::List> atomsOf(KXMutableData::Ref const& data, KXMP4Atom::Ref& root)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    root = treeWithLargeAtoms(*reader);
    return cameraDataAtoms(*root, *reader);
}

/// The top-level atom around an atom, or the atom itself.
KXMP4Atom& topLevelAtomAround(KXMP4Atom& atom)
{
    KXMP4Atom* top = &atom;
    while (top->parent() && top->parent()->parent())
        top = top->parent();
    return *top;
}

/// Edits write sizes of 32 bits; puts one of 64 bits where it belongs.
void restoreLargeSize(KXMP4Atom const& atom, KXMutableData& data)
{
    constexpr std::uint64_t highOffset = 8, lowOffset = 12;
    auto const write = [&](std::uint64_t offset, std::uint64_t value) {
        // What cannot be written is told by the check beforehand.
        static_cast<void>(
            data.replaceUInt32AtWith(atom.offset() + offset, static_cast<std::uint32_t>(value)));
    };
    write(0, KXMP4SizeFollows);
    write(highOffset, atom.size() >> 32);
    write(lowOffset, atom.size());
}

void removeAtomFromData(KXMP4Atom& atom, KXMutableData::Ref const& data)
{
    KXMP4Atom& top = topLevelAtomAround(atom);
    bool const isLarge
        = &top != &atom && hasLargeSize(top, *KXMutableAbstractData::abstractDataWithData(data));
    std::uint64_t const length = data->length();
    // It goes even if an offset cannot be corrected, which the check beforehand tells.
    static_cast<void>(atom.removeSelfFromMutableData(*data));
    if (isLarge && data->length() != length)
        restoreLargeSize(top, *data);
}

/// Removes the first of the atoms that can be removed; whether any bytes went.
bool removeOneFromData(KXMutableData::Ref const& data)
{
    KXMP4Atom::Ref root; // Kept while it is edited.
    auto const atoms = atomsOf(data, root);
    std::uint64_t const length = data->length();
    for (auto const& atom : atoms.value_or(KXMP4Atom::List())) {
        removeAtomFromData(*atom, data);
        if (data->length() != length)
            return true;
    }
    return false;
}

}

std::optional<KXMP4Atom::List> cameraDataAtoms(KXMP4Atom& root, KXAbstractData& data)
{
    KXMP4Atom::List atoms;
    for (std::string_view const path : metadataPaths)
        std::ranges::move(root.allAtomsWithPath(path), std::back_inserter(atoms));
    for (std::string_view const path : extendedTypePaths) {
        std::ranges::copy_if(root.allAtomsWithPath(path), std::back_inserter(atoms),
            [&data](auto const& atom) { return isRemovedExtendedType(*atom, data); });
    }
    if (canRemoveInGoodTime(atoms.size(), root))
        return atoms;
    KXLog("Metadata", "KXMP4CameraData->too much of it, none is removed");
    return std::nullopt;
}

bool KXMP4CameraData::removeFromData(KXMutableData::Ref const& data)
{
    KXMP4Atom::Ref root;
    auto const atoms = data ? atomsOf(data, root) : std::nullopt;
    if (!atoms)
        return false;
    // Sizes that contradict each other may bring up more atoms, again and again; these stay.
    std::size_t left = atoms->size();
    while (left && removeOneFromData(data))
        --left;
    return !left;
}

std::uint64_t KXMP4CameraData::bytesInData(KXAbstractData& data)
{
    // By an edit in memory, which reads what it needs: atoms may claim more than there is.
    KXAbstractData::Ref const unowned(KXAbstractData::Ref(), &data);
    auto const edited = std::make_shared<KXMutableData>(unowned);
    static_cast<void>(removeFromData(edited));
    return data.length() - edited->length();
}
