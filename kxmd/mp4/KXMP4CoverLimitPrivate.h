#pragma once

#include "kxmd/mp4/KXMP4Atom.h"

#include <cstddef>

/// Whether `root` is a file whose covers can be removed in good time.
///
/// Each removal moves the file's bytes and parses them anew. Real files have a handful of covers;
/// one with very many of them, or with many among a million atoms, was made to keep us busy.
inline bool areCoversFewEnough(KXMP4Atom::List const& covers, KXMP4Atom& root)
{
    constexpr std::size_t aHandful = 16, mostCovers = 1024, mostParsedAtoms = 1u << 25;
    if (covers.size() <= aHandful)
        return true;
    if (covers.size() > mostCovers)
        return false;
    std::size_t atoms = 0;
    root.visitDepthFirst(
        [&](KXMP4Atom&, std::size_t) { return ++atoms * covers.size() <= mostParsedAtoms; });
    return atoms * covers.size() <= mostParsedAtoms;
}
