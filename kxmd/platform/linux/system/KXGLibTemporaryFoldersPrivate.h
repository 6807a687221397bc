#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXGuarded.h"
#include "kxmd/platform/KXTemporaryFolders.h"

#include <mutex>
#include <vector>

/// Temporary folders under the user's cache folder, never in one that users share.
///
/// What hosts forget there is taken away by the next process that asks for a folder: everything
/// that was not changed for two days and that no process holds. A process holds the unique folders
/// that it made, until it ends or removes them.
class KX_EXPORT_FOR_TESTS KXGLibTemporaryFolders final : public KXTemporaryFolders {
public:
    KXGLibTemporaryFolders() = default;
    ~KXGLibTemporaryFolders() override;
    KXGLibTemporaryFolders(KXGLibTemporaryFolders const&) = delete;
    KXGLibTemporaryFolders& operator=(KXGLibTemporaryFolders const&) = delete;

    [[nodiscard]] std::string applicationTempFolder() const override;
    [[nodiscard]] std::string applicationUniqueTempFolderWithPrefix(
        std::string_view prefix) const override;

private:
    bool hold(std::string const& path) const;

    mutable std::once_flag _firstUse;
    mutable KXGuarded<std::vector<int>> _held; ///< The folders, open and locked.
};
