#pragma once

#include "kxmd/base/KXFourCharacterCodePrivate.h"
#include "kxmd/base/KXMutableData.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "kxmd/mp4/safety/KXMP4EditMapPrivate.h"
#include "kxmd/mp4/safety/KXMP4FieldPairPrivate.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

/// Walks a file by the standards, 64-bit sizes and boxes that reach to the end of the file
/// included, before an edit and after it, box by box and side by side: what is left must be the
/// same boxes, whose media references lead to the same bytes.
class KXMP4EditComparison {
public:
    /// `before` reads the file, `edited` is the edited one, and `root` the tree by which it was
    /// edited.
    KXMP4EditComparison(KXAbstractData& before, KXMutableData::Ref const& edited, KXMP4Atom& root);

    /// The first reason against the edit; empty when there is none. Whether the edit could not be
    /// finished is a reason as well.
    std::string_view reason(bool isFinished);

private:
    struct Box {
        std::uint64_t offset { 0 };
        std::uint64_t headerSize { 8 };
        std::uint64_t size { 0 }; ///< What it claims.
        std::uint64_t end { 0 }; ///< Not past that of what is around it.
        KXFourCharacterCode type {};
    };
    /// A box before the edit and after it.
    struct Boxes {
        Box before;
        Box after;
    };
    struct Level {
        KXFourCharacterCode type {}; ///< None for the file.
        KXMP4Pair end;
        std::uint64_t lost { 0 }; ///< Bytes it claims past its end, before the edit.
    };
    struct Track {
        bool hasOwnMedia { false };
        bool hasForeignMedia { false };
    };
    enum class TableKind : std::uint8_t { offsets32, offsets64, auxiliary };
    struct Table {
        Boxes boxes;
        std::size_t track { 0 };
        TableKind kind { TableKind::offsets32 };
    };
    /// What the tree takes for a 32-bit chunk offset table, before the edit.
    struct TakenTable {
        std::uint64_t offset { 0 };
        std::uint32_t noOfEntries { 0 };
    };
    using Range = KXMutableData::Range;

    static constexpr std::uint64_t smallHeader = 8; ///< Bytes of a size and a type.

    static std::vector<TakenTable> takenTablesOf(KXMP4Atom& root);

    // Boxes.
    std::string_view compareBoxes();
    std::optional<Box> nextBoxBefore();
    std::optional<Box> nextBoxAfter();
    std::optional<Box> boxAt(KXAbstractData& data, std::uint64_t position, std::uint64_t end) const;
    std::string_view take(Boxes const& boxes);
    std::string_view compareSizes(Boxes const& boxes);
    void enter(Boxes const& boxes);
    void skipFieldsOfSoundEntry(Boxes const& boxes);
    std::string_view takeLeaf(Boxes const& boxes);
    KXMP4FieldPair fieldsOf(Boxes const& boxes);

    // References to media.
    bool leadsToTheSame(KXMP4Pair place) const;
    std::string_view compareFragmentHeaders(Boxes const& boxes);
    std::string_view compareRuns(Boxes const& boxes);
    std::string_view compareFragmentAccess(Boxes const& boxes);
    std::string_view compareSegmentIndexes(Boxes const& boxes);
    std::string_view compareItemLocations(Boxes const& boxes);
    bool compareItemExtents(KXMP4FieldPair& fields, KXMP4Pair base, unsigned indexSize,
        unsigned offsetSize, unsigned lengthSize, bool isInFile) const;

    // Tables of them.
    void takeDataReferences(Box const& box);
    std::string_view compareTables();
    std::string_view compareTable32(Table const& table);
    std::string_view compareEntry32(KXMP4Pair entry, Table const& table) const;
    std::string_view compareTable64(Table const& table);
    std::string_view compareAuxiliaryOffsets(Boxes const& boxes, bool isInFragment);

    // What was overwritten.
    std::string_view compareOverwritten();
    std::string_view compareRange(Range const& range);
    bool isEqualAt(std::uint64_t origin, std::uint64_t length) const;
    std::string_view reasonForChangeIn(Range const& range, std::string_view otherwise) const;
    std::uint64_t claimedEntries(TakenTable const& table) const;
    Box const* boxOfTable32(std::uint64_t offset) const;
    bool isCorrected(Box const& table) const;
    std::string_view reasonAgainstUnfinished();

    KXAbstractData& _before;
    KXAbstractData::Ref const _after;
    KXMutableData const& _edited;
    KXMP4EditMap const _map;
    std::vector<TakenTable> const _takenTables; // In the order of their offsets.
    std::vector<Level> _open; // Never deeper than boxes with media references can stand.
    KXMP4Pair _position;
    std::vector<Track> _tracks;
    std::vector<Table> _tables;
    KXMP4Pair _fragmentStart;
    KXMP4Pair _fragmentBase;
    std::vector<Range> _corrected; // Sizes and entries, where they were.
};
