#pragma once

#include <kxmd/thumbnails/KXMDThumbnailController.h>

#include <optional>
#include <string>
#include <vector>

// What both browsers ask of a folder. All of this takes its time: never call it on the main thread.

using Files = std::vector<KXDCFile::Ref>;

/// The files and folders in the folder at `path`, folders first, without hidden ones. Absent when
/// the folder cannot be read.
std::optional<Files> filesInFolder(std::string const& path);

/// Four pictures of files in the folder at `path` in one, with the mark of a folder; null when no
/// file near its start has a picture.
KXImage::Ref pictureOfFolder(
    std::string const& path, KXMDThumbnailController& controller, KXSize size);
