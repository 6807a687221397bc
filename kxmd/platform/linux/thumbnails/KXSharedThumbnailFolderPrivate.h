#pragma once

#include "kxmd/base/KXExport.h"

#include <optional>
#include <string>
#include <vector>

/// The thumbnails that the programs of a desktop share (freedesktop.org, Thumbnail Managing
/// Standard).
class KX_EXPORT_FOR_TESTS KXSharedThumbnailFolder {
public:
    /// Over the folder that holds the folders for each size.
    explicit KXSharedThumbnailFolder(std::string folder);

    struct Entry {
        std::string path; ///< A PNG file.
        int sideLength { 0 }; ///< In pixels: the longer side of what is not smaller itself.
    };

    /// The smallest thumbnail of the file at the absolute `path` that has at least `sideLength`
    /// pixels, else the largest one; absent when there is none that was made of the file as it is
    /// now.
    std::optional<Entry> entryForPath(std::string const& path, int sideLength) const;

private:
    std::string const _folder;
};
