#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <cstddef>

/// Whether `count` atoms of the file that `root` stands for can be removed in good time.
///
/// Each removal corrects the chunk offset tables, which may fill the file, and then the whole file
/// is parsed again. Real files have a handful of atoms to remove; a file with very many, or with
/// many among a million atoms, was made to keep us busy.
inline bool canRemoveInGoodTime(std::size_t count, KXMP4Atom& root)
{
    constexpr std::uint64_t aHandful = 16, mostParsedAtoms = 1u << 25,
                            mostTableBytes = std::uint64_t { 1 } << 38;
    if (count <= aHandful)
        return true;
    if (root.size() > mostTableBytes / count)
        return false;
    std::uint64_t atoms = 0;
    root.visitDepthFirst([&atoms](KXMP4Atom&, std::size_t) {
        ++atoms;
        return true;
    });
    return atoms <= mostParsedAtoms / count;
}
