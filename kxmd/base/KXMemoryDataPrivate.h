#pragma once

#include "kxmd/base/KXAbstractData.h"

#include <algorithm>
#include <span>
#include <utility>

/// A reader over bytes in memory that never change: all of them are its window.
class KXMemoryData final : public KXAbstractData {
public:
    /// Over bytes that somebody else keeps for as long as this reader lives.
    explicit KXMemoryData(std::span<std::uint8_t const> bytes)
        : _bytes(bytes)
    {
        setWindow({ _bytes.data(), 0, _bytes.size() });
    }

    /// Over a buffer that the reader shares.
    explicit KXMemoryData(KXData data)
        : KXMemoryData(data.bytes())
    {
        _owner = std::move(data);
    }

    std::uint64_t length() const override { return _bytes.size(); }

private:
    std::uint8_t const* bytesAt(std::uint64_t position, std::size_t) override
    {
        return _bytes.data() + position;
    }

    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        std::copy_n(_bytes.data() + position, count, target);
        return count;
    }

    std::span<std::uint8_t const> const _bytes;
    KXData _owner;
};
