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

    /// `bytes` The bytes; valid until the next edit.
    std::span<std::uint8_t const> bytes() const { return _bytes; }

    /// `insertBytes:at:` Inserts `bytes` in front of the byte at `position`, which may be the end.
    ///
    /// `bytes` must not lie in this buffer. False when the position is past the end.
    [[nodiscard]] bool insertBytesAt(std::span<std::uint8_t const> bytes, std::uint64_t position);

    /// `removeBytesAt:length:` Removes `length` bytes from `position` on. False when they are not
    /// all there.
    [[nodiscard]] bool removeBytesAt(std::uint64_t position, std::uint64_t length);

    /// `replaceBytesAt:bytes:` Overwrites as many bytes as `bytes` has. False when they are not all
    /// there.
    [[nodiscard]] bool replaceBytesAt(std::uint64_t position, std::span<std::uint8_t const> bytes);

private:
    bool contains(std::uint64_t position, std::uint64_t length) const;

    std::vector<std::uint8_t> _bytes;
};
