#pragma once

#include "kxmd/mp4/KXMP4Atom.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Edits that are made to a file one after another, each told by its place in the file as it is
/// before the first.
class KXMP4EditPlan {
public:
    struct Edit {
        KXMP4Atom::Ref atom; ///< What is removed, or what is inserted in front of.
        std::uint64_t position { 0 };
        std::uint64_t removed { 0 }; ///< Bytes from `position` on.
        std::uint64_t inserted { 0 }; ///< Bytes in front of `position`.
        bool isRemoval() const { return removed > 0; }
    };

    /// Adds the removal of the whole atom.
    void remove(KXMP4Atom::Ref atom);
    /// Adds the insertion of `size` bytes in front of the atom.
    void insertBefore(KXMP4Atom::Ref atom, std::uint64_t size);
    bool isEmpty() const { return _edits.empty(); }
    /// Puts the edits into the order of the file, which is `fileLength` bytes long. False when one
    /// reaches into another.
    bool finishForFileLength(std::uint64_t fileLength);

    // Asked of the finished plan.

    std::vector<Edit> const& edits() const { return _edits; }
    /// The place of the first edit; there must be one.
    std::uint64_t start() const { return _edits.front().position; }

    /// By how much a byte at `position` moves in all.
    std::int64_t movedBy(std::uint64_t position) const;
    /// Whether the byte at `position` goes.
    bool isRemoved(std::uint64_t position) const;
    /// How many edits take away bytes of the range, or insert some between two of them.
    std::size_t editsWithin(std::uint64_t begin, std::uint64_t end) const;
    /// Whether a field that nobody corrects may go on to name `position`. It may as well when that
    /// lies behind the end of the file, as it was and as it will be.
    bool isKept(std::uint64_t position) const;

private:
    std::size_t editsUpTo(std::uint64_t position) const;

    std::vector<Edit> _edits;
    std::vector<std::int64_t> _movedBy; // By the first, by the first two, ...
    std::uint64_t _fileLength { 0 };
};
