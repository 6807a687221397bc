#pragma once

#include <cstdint>

/// Layout of a 32-bit chunk offset table (ISO/IEC 14496-12, 8.7.5): positions from the first byte
/// of its atom on, and sizes in bytes.
struct KXMP4ChunkTable {
    static constexpr std::uint64_t entryCountOffset = 12;
    static constexpr std::uint64_t entriesOffset = 16;
    static constexpr std::uint64_t entrySize = 4;
};
