#pragma once

#include "kxmd/base/KXExport.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

class KXAbstractData;

/// A growable sequence of bytes, edited in place. Used by one thread at a time.
///
/// Every access is checked: one that reaches past the end answers false and changes nothing.
///
/// The sequence is kept as a list of pieces: what is left of the bytes that it was made from, and
/// what was inserted between them. So an edit moves no bytes; they are put into one row when
/// `bytes` asks for that, all edits in one pass.
class KX_EXPORT KXMutableData {
public:
    /// A shared buffer; null where there is none.
    using Ref = std::shared_ptr<KXMutableData>;

    /// `init` An empty buffer.
    KXMutableData() = default;
    /// `initWithBytes:` These bytes, which it takes over.
    explicit KXMutableData(std::vector<std::uint8_t> bytes);

    /// `initWithAbstractData:` The bytes that `source` reads, to be edited while the file itself
    /// stays as it is. They are read on demand, so only what is changed takes memory; an access to
    /// bytes that cannot be read fails. Moves the read position of `source`.
    explicit KXMutableData(std::shared_ptr<KXAbstractData> source);

    KXMutableData(KXMutableData const&) = delete;
    KXMutableData& operator=(KXMutableData const&) = delete;

    /// `length` The number of bytes.
    [[nodiscard]] std::uint64_t length() const { return _length; }

    /// `readUInt32To:at:` Reads a big-endian number. False, and 0, when its bytes are not all
    /// there.
    [[nodiscard]] bool readUInt32ToAt(std::uint32_t& value, std::uint64_t position) const;

    /// `replaceUInt32At:with:` Overwrites four bytes with a big-endian number. False when they are
    /// not all there.
    [[nodiscard]] bool replaceUInt32AtWith(std::uint64_t position, std::uint32_t value);

    /// `readBytesTo:length:at:` Copies `length` bytes from `position` on. False, with `bytes` in
    /// any state, when they are not all there.
    [[nodiscard]] bool readBytesToAt(
        std::uint8_t* bytes, std::uint64_t length, std::uint64_t position) const;

    /// `bytesInPlaceAt:length:` The bytes from `position` on, where they lie in memory in one row;
    /// null where they do not. Valid until the next edit.
    [[nodiscard]] std::uint8_t const* bytesInPlaceAt(
        std::uint64_t position, std::uint64_t length) const;

    /// `bytes` All bytes, in one row; valid until the next edit. None when they cannot all be read.
    [[nodiscard]] std::span<std::uint8_t const> bytes() const;

    /// `insertBytes:at:` Inserts `bytes` before the byte at `position`, which may be the end. False
    /// when the position is past the end.
    [[nodiscard]] bool insertBytesAt(std::span<std::uint8_t const> bytes, std::uint64_t position);

    /// `insertUnknownBytes:at:` Inserts `count` bytes that are not known yet, to see what an edit
    /// would do. They take no memory, read as 0xFF and cannot be overwritten. False when the
    /// position is past the end.
    [[nodiscard]] bool insertUnknownBytesAt(std::uint64_t count, std::uint64_t position);

    /// `removeBytesAt:length:` Removes `length` bytes from `position` on. False when they are not
    /// all there.
    [[nodiscard]] bool removeBytesAt(std::uint64_t position, std::uint64_t length);

    /// A part of a buffer, in bytes.
    struct Range {
        std::uint64_t position { 0 }; ///< From the start of the buffer.
        std::uint64_t length { 0 }; ///< May be 0.

        bool operator==(Range const&) const = default;
    };

    /// `removeRanges:` Removes all of `ranges` in one pass, which come in the order of their
    /// positions and do not overlap. False, with nothing removed, when they are not all there.
    [[nodiscard]] bool removeRanges(std::span<Range const> ranges);

    /// `replaceBytesAt:bytes:` Overwrites as many bytes as `bytes` has. False when they are not all
    /// there.
    [[nodiscard]] bool replaceBytesAt(std::uint64_t position, std::span<std::uint8_t const> bytes);

    // What the edits did to the bytes that the buffer was made from.

    /// Bytes that are still there, in one stretch before and after.
    struct Kept {
        std::uint64_t origin { 0 }; ///< Their place in what the buffer was made from.
        std::uint64_t position { 0 }; ///< Their place now.
        std::uint64_t length { 0 }; ///< In bytes, the same before and after.

        bool operator==(Kept const&) const = default;
    };

    /// `keptBytes` Every stretch that is still there, overwritten bytes included, in order. What
    /// lies between two stretches was removed or inserted.
    [[nodiscard]] std::vector<Kept> keptBytes() const;

    /// `overwrittenOrigins` The places that were overwritten, counted in the bytes that the buffer
    /// was made from, in the order of the edits. A place may occur several times.
    [[nodiscard]] std::span<Range const> overwrittenOrigins() const { return _overwritten; }

private:
    /// Bytes that lie in one row, or that are not in memory yet.
    struct Piece {
        std::uint64_t length;
        std::uint64_t origin; // `none` for inserted bytes.
        std::uint8_t* bytes; // Null for those of the source, and for unknown ones.
    };
    static constexpr std::uint64_t none = static_cast<std::uint64_t>(-1);

    /// The place of a piece in the list, and of its first byte.
    struct Place {
        std::size_t index;
        std::uint64_t start;
    };

    bool contains(std::uint64_t position, std::uint64_t length) const;
    Place placeOf(std::uint64_t position) const;
    std::size_t splitAt(std::uint64_t position);
    static Piece partOf(Piece const& piece, std::uint64_t into, std::uint64_t length);
    void insertPieceAt(Piece const& piece, std::uint64_t position);
    bool copyFrom(
        Piece const& piece, std::uint64_t into, std::uint8_t* target, std::uint64_t count) const;
    bool loadPieceAt(std::uint64_t position, std::uint64_t wanted);
    void noteOverwritten(std::uint64_t origin, std::uint64_t length);
    bool isInOneRow() const;
    void moveWithinRow() const;
    bool copyToNewRow() const;

    std::uint64_t _length { 0 };
    std::shared_ptr<KXAbstractData> _source; // Null when the bytes are in memory.
    std::vector<Range> _overwritten;
    // How the bytes are kept, which `bytes` may change.
    mutable std::vector<Piece> _pieces;
    mutable std::vector<std::uint8_t> _row; // What the buffer was made from, or all of it now.
    mutable std::vector<std::unique_ptr<std::uint8_t[]>> _blocks;
    mutable Place _lastPlace { 0, 0 };
};
