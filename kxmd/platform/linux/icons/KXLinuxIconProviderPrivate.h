#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXIconProvider.h"
#include "kxmd/platform/linux/icons/KXIconThemesPrivate.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"

#include <memory>
#include <string>
#include <vector>

/// The icons of the desktop's theme; where it has none, drawn by ourselves: a sheet or a folder.
class KX_EXPORT_FOR_TESTS KXLinuxIconProvider final : public KXIconProvider {
public:
    KXLinuxIconProvider(
        KXIconThemes::Places places, std::shared_ptr<KXRenderPictureLoader const> pictureLoader);

    [[nodiscard]] KXImage::Ref iconForFileType(
        std::string const& fileType, KXSize size) const override;

    /// The names that the icon of a type goes by, the most particular one first.
    static std::vector<std::string> iconNamesForFileType(std::string const& fileType);

private:
    KXImage::Ref iconOfTheme(std::string const& fileType, KXSize size) const;

    KXIconThemes const _themes;
    std::shared_ptr<KXRenderPictureLoader const> const _pictureLoader;
};
