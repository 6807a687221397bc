#pragma once

#include "kxmd/platform/KXFileManager.h"

/// Files by the C library, written atomically by GLib.
class KXGLibFileManager final : public KXFileManager {
public:
    [[nodiscard]] KXMutableData::Ref mutableDataWithContentsOfFile(
        std::string const& path) const override;
    [[nodiscard]] bool writeBytesToFile(
        std::span<std::uint8_t const> bytes, std::string const& path) const override;
    bool createFolderAtPath(std::string const& path) const override;
    void removeEmptyFolderAtPath(std::string const& path) const override;
    [[nodiscard]] std::optional<std::uint64_t> sizeOfFileAtPath(
        std::string const& path) const override;
};
