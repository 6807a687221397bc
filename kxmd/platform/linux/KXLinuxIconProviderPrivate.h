#pragma once

#include "kxmd/platform/KXIconProvider.h"

/// Icons drawn by ourselves: a sheet of paper, or a folder.
// FIXME: the icons of the desktop's theme are not looked up yet.
class KXLinuxIconProvider final : public KXIconProvider {
public:
    [[nodiscard]] KXImage::Ref iconForFileType(
        std::string const& fileType, KXSize size) const override;
};
