#pragma once

#include "kxmd/base/KXExport.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// An immutable sequence of bytes that copies share. Safe to read from several threads.
class KX_EXPORT KXData {
public:
    /// `init` No bytes.
    KXData() = default;
    /// `initWithBytes:` These bytes, which it takes over.
    explicit KXData(std::vector<std::uint8_t> bytes);

    /// `length` The number of bytes; 0 once the object was moved from.
    std::uint64_t length() const { return bytes().size(); }

    /// `bytes` The bytes; valid as long as any copy of this object.
    std::span<std::uint8_t const> bytes() const
    {
        return _bytes ? std::span<std::uint8_t const>(*_bytes) : std::span<std::uint8_t const>();
    }

private:
    std::shared_ptr<std::vector<std::uint8_t> const> _bytes; // Null for no bytes.
};
