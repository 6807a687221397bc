#pragma once

#include "kxmd/base/KXExport.h"

#include <string>
#include <string_view>
#include <vector>

/// `pathComponents:` The names between the slashes of `path`; empty ones and "." are left out.
KX_EXPORT std::vector<std::string_view> KXPathComponents(std::string_view path);

/// `lastPathComponent:` The name after the last slash, trailing slashes aside; empty for "/".
KX_EXPORT std::string_view KXLastPathComponent(std::string_view path);

/// `pathExtension:` What follows the last full stop of the last component; empty without one.
KX_EXPORT std::string_view KXPathExtension(std::string_view path);

/// `pathByDeletingLastPathComponent:` The path before the last component: "/" for a path at the
/// root, empty for a bare name.
KX_EXPORT std::string_view KXPathByDeletingLastPathComponent(std::string_view path);

/// `relativePathForRootFolder:` The part of `path` below `rootFolder`, its components joined by
/// "/".
///
/// Empty when `path` is the folder itself or lies outside of it. Whole components are compared, so
/// "/Music2/a" lies outside "/Music"; ".." is resolved in the text alone, and the disk is not
/// asked.
KX_EXPORT std::string KXRelativePathForRootFolder(
    std::string_view path, std::string_view rootFolder);
