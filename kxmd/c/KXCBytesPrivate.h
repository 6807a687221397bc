#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/kxmd_c.h"

#include <cstdint>
#include <new>
#include <vector>

struct kxmd_bytes {
    KXData data;
};

/// A copy of the `length` bytes at `bytes`.
inline KXData KXCCopyOfBytes(void const* bytes, std::size_t length)
{
    if (length > PTRDIFF_MAX) // More than any memory.
        throw std::bad_alloc();
    auto const* const first = static_cast<std::uint8_t const*>(bytes);
    return KXData(
        length ? std::vector<std::uint8_t>(first, first + length) : std::vector<std::uint8_t>());
}
