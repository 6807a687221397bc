#pragma once

#include "kxmd/mp4/KXMP4EditOutlinePrivate.h"
#include "kxmd/mp4/KXMP4FieldCursorPrivate.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

/// Walks a file by the standards, 64-bit sizes and atoms that reach to the end of the file
/// included, and compares what an edit has to change in it with what the edit does change.
class KXMP4MediaOffsetCheck {
public:
    KXMP4MediaOffsetCheck(
        KXAbstractData& data, KXMP4EditPlan const& plan, KXMP4EditOutline& outline);

    /// The first reason against the plan; empty when there is none.
    std::string_view reason();

private:
    struct Box {
        std::uint64_t offset { 0 };
        std::uint64_t headerSize { 8 };
        std::uint64_t size { 0 }; ///< What it claims.
        std::uint64_t end { 0 }; ///< Not past that of what is around it.
        std::uint32_t type { 0 };
    };
    struct Level {
        std::uint32_t type { 0 }; ///< 0 for the file.
        std::uint64_t end { 0 };
    };
    struct Track {
        bool hasOwnMedia { false };
        bool hasForeignMedia { false };
    };
    enum class TableKind : std::uint8_t { offsets32, offsets64, auxiliary };
    struct Table {
        std::uint64_t offset { 0 };
        std::uint64_t begin { 0 }; ///< Behind the header.
        std::uint64_t end { 0 };
        std::size_t track { 0 };
        TableKind kind { TableKind::offsets32 };
    };

    std::optional<Box> nextBox(Level const& level);
    std::string_view take(Box const& box);
    std::string_view checkPlace(Box const& box, bool isEntered);
    void enter(Box const& box);
    std::string_view takeLeaf(Box const& box, std::uint32_t parentType);
    std::string_view checkNodesSeen() const;

    // Of fragments and items.
    KXMP4FieldCursor fieldsOf(Box const& box);
    std::string_view checkFragmentHeader(Box const& box);
    bool isFragmentOffsetKept(std::uint64_t offsetFromBase) const;
    std::string_view checkRun(Box const& box);
    std::string_view checkAuxiliaryOffsets(Box const& box, bool isInFragment);
    std::string_view checkFragmentAccess(Box const& box);
    std::string_view checkSegmentIndex(Box const& box);
    std::string_view checkItemLocations(Box const& box);
    bool areItemExtentsKept(KXMP4FieldCursor& fields, std::uint64_t base, unsigned indexSize,
        unsigned offsetSize, unsigned lengthSize, bool isInFile);

    // Of tables.
    void takeDataReferences(Box const& box);
    std::string_view checkTables();
    std::string_view checkTable32(Table const& table, bool isWritten);
    std::string_view checkEntry32(
        std::uint64_t entry, std::uint64_t smallest, bool isCorrected, Track const& track) const;
    bool isEntryChanged(std::uint64_t offset, std::uint64_t index);
    std::optional<std::uint64_t> largestFieldSeen(std::uint64_t offset, std::uint64_t position);
    std::string_view checkTable64(Table const& table);
    bool isTableOrLeftAlone(std::uint64_t offset);

    KXAbstractData& _data;
    KXMP4EditPlan const& _plan;
    KXMP4EditOutline& _outline;
    std::vector<Level> _open; // Never deeper than atoms with media offsets can stand.
    std::uint64_t _position { 0 };
    std::vector<Track> _tracks;
    std::vector<Table> _tables;
    std::uint64_t _fragmentStart { 0 };
    std::uint64_t _fragmentBase { 0 };
};
