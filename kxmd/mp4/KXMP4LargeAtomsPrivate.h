#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <cstdint>

/// The size field of an atom whose size has 64 bits and follows the type (ISO/IEC 14496-12, 4.2).
inline constexpr std::uint32_t KXMP4SizeFollows = 1;

/// The tree of the whole file that `data` reads, in which top-level atoms may have 64-bit sizes or
/// reach to the end of the file (ISO/IEC 14496-12, 4.2), as media of long recordings does. By
/// itself the tree does not understand these and finds nothing after them. Never null.
///
/// Of atoms with such a size only those are in it that lead to metadata; media is left out. Places
/// and sizes are those in the file. Other files get the tree of `atomWithAbstractData:`.
[[nodiscard]] KXMP4Atom::Ref treeWithLargeAtoms(KXAbstractData& data);

/// Whether the 64-bit size of an atom of that tree follows its type.
[[nodiscard]] bool hasLargeSize(KXMP4Atom const& atom, KXAbstractData& data);
