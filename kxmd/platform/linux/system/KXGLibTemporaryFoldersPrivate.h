#pragma once

#include "kxmd/platform/KXTemporaryFolders.h"

/// Temporary folders under the user's cache folder, never in one that users share.
class KXGLibTemporaryFolders final : public KXTemporaryFolders {
public:
    [[nodiscard]] std::string applicationTempFolder() const override;
    [[nodiscard]] std::string applicationUniqueTempFolderWithPrefix(
        std::string_view prefix) const override;
};
