#pragma once

#include "kxmd/host/KXExport.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// An immutable sequence of bytes that copies share. Safe to read from several threads.
class KX_EXPORT KXData {
public:
    KXData();
    explicit KXData(std::vector<std::uint8_t> bytes);

    /// `length` The number of bytes.
    std::uint64_t length() const { return _bytes->size(); }

    /// `bytes` The bytes; valid as long as any copy of this object.
    std::span<std::uint8_t const> bytes() const { return *_bytes; }

private:
    std::shared_ptr<std::vector<std::uint8_t> const> _bytes;
};

/// A growable sequence of bytes, edited in place. Used by one thread at a time.
///
/// Every access is checked: one that reaches past the end answers false and changes nothing.
class KX_EXPORT KXMutableData {
public:
    using Ref = std::shared_ptr<KXMutableData>;

    KXMutableData() = default;
    explicit KXMutableData(std::vector<std::uint8_t> bytes);

    KXMutableData(KXMutableData const&) = delete;
    KXMutableData& operator=(KXMutableData const&) = delete;

    /// `length` The number of bytes.
    std::uint64_t length() const { return _bytes.size(); }

    /// `readUInt32To:at:` Reads a big-endian number. False, and 0, when its bytes are not all
    /// there.
    [[nodiscard]] bool readUInt32ToAt(std::uint32_t& value, std::uint64_t position) const;

    /// `replaceUInt32At:with:` Overwrites four bytes with a big-endian number. False when they are
    /// not all there.
    [[nodiscard]] bool replaceUInt32AtWith(std::uint64_t position, std::uint32_t value);

    /// `bytes` The bytes; valid until the next edit.
    std::span<std::uint8_t const> bytes() const { return _bytes; }

    /// `insertBytes:at:` Inserts `bytes` in front of the byte at `position`, which may be the end.
    ///
    /// `bytes` must not lie in this buffer. False when the position is past the end. Takes no more
    /// memory than the bytes need, so the whole is copied unless there was room.
    [[nodiscard]] bool insertBytesAt(std::span<std::uint8_t const> bytes, std::uint64_t position);

    /// `removeBytesAt:length:` Removes `length` bytes from `position` on. False when they are not
    /// all there.
    [[nodiscard]] bool removeBytesAt(std::uint64_t position, std::uint64_t length);

    /// A part of a buffer, in bytes.
    struct Range {
        std::uint64_t position { 0 };
        std::uint64_t length { 0 };
    };

    /// `removeRanges:` Removes all of `ranges` in one pass, which come in the order of their
    /// positions and do not overlap. False, with nothing removed, when they are not all there.
    [[nodiscard]] bool removeRanges(std::span<Range const> ranges);

    /// `replaceBytesAt:bytes:` Overwrites as many bytes as `bytes` has. False when they are not all
    /// there.
    [[nodiscard]] bool replaceBytesAt(std::uint64_t position, std::span<std::uint8_t const> bytes);

private:
    bool contains(std::uint64_t position, std::uint64_t length) const;

    std::vector<std::uint8_t> _bytes;
};
