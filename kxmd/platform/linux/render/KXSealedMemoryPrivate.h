#pragma once

#include "kxmd/platform/linux/system/KXFileDescriptorPrivate.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

// Files in memory that nobody can change or shorten any more (memfd_create(2), sealed).

/// A new file in memory that bytes can be written to; closed when there is no memory.
KXFileDescriptor newMemoryFile();

/// Writes all of the bytes; false when there is no room.
bool writeToMemoryFile(int file, std::span<std::uint8_t const> bytes);

/// Makes the content of a file in memory final.
bool sealMemoryFile(int file);

/// The whole content of a sealed file in memory, for as long as anybody has it; null when the file
/// is of another length, or could still be changed by whoever sent it.
std::shared_ptr<std::uint8_t const> mappedSealedMemory(int file, std::size_t length);

/// The bytes in a sealed file; closed when there is no memory.
KXFileDescriptor sealedMemoryOf(std::span<std::uint8_t const> bytes);
