#pragma once

#include "kxmd/base/KXExport.h"

#include <string>
#include <string_view>

/// Temporary folders that only the user can look into. Safe to call from several threads.
class KX_EXPORT KXTemporaryFolders {
public:
    virtual ~KXTemporaryFolders();

    /// `applicationTempFolder` The path of the application's temporary folder, which may not exist
    /// yet.
    [[nodiscard]] virtual std::string applicationTempFolder() const = 0;

    /// `applicationUniqueTempFolderWithPrefix:` The path of a new folder in the application's
    /// temporary folder, its name unique and beginning with `prefix`, a name without slashes; empty
    /// when it cannot be made.
    [[nodiscard]] virtual std::string applicationUniqueTempFolderWithPrefix(
        std::string_view prefix) const = 0;
};
