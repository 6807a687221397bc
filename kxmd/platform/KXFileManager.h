#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXMutableData.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// What is done with whole files. Safe to call from several threads.
class KX_EXPORT KXFileManager {
public:
    virtual ~KXFileManager();

    /// `mutableDataWithContentsOfFile:` All bytes of the regular file at `path`, in a buffer with
    /// spare room for a cover; null when they cannot all be read.
    [[nodiscard]] virtual KXMutableData::Ref mutableDataWithContentsOfFile(
        std::string const& path) const = 0;

    /// `writeBytes:toFile:` Replaces the contents of the file at `path` with `bytes` atomically;
    /// false, with the file unchanged, when that cannot be done.
    [[nodiscard]] virtual bool writeBytesToFile(
        std::span<std::uint8_t const> bytes, std::string const& path) const = 0;

    /// `createFolderAtPath:` Makes a folder that only the user can look into, with any missing
    /// parent; false when there is none afterwards.
    virtual bool createFolderAtPath(std::string const& path) const = 0;

    /// `removeEmptyFolderAtPath:` Removes the folder unless there is something in it.
    virtual void removeEmptyFolderAtPath(std::string const& path) const = 0;

    /// `sizeOfFileAtPath:` The size in bytes; absent when there is no such file.
    [[nodiscard]] virtual std::optional<std::uint64_t> sizeOfFileAtPath(
        std::string const& path) const = 0;
};
