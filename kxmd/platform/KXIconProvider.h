#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXImage.h"

#include <string>
#include <string_view>

/// Icons by type of file. Safe to call from several threads.
class KX_EXPORT KXIconProvider {
public:
    virtual ~KXIconProvider();

    /// `iconForFileType:size:` The icon of a type, in about `size` points.
    ///
    /// The type is a file name extension or `folderType` or `documentType`. Unknown types have a
    /// generic icon. Null for a size that no picture can have.
    [[nodiscard]] virtual KXImage::Ref iconForFileType(
        std::string const& fileType, KXSize size) const = 0;

    // Types that are not extensions. An extension is part of a file's name and never contains a
    // slash.
    /// A folder.
    static constexpr std::string_view folderType = "/fldr";
    static constexpr std::string_view documentType = "/docu"; ///< A file without extension.
};
