#pragma once

#include <kxmd/core/KXMDFileMeta.h>

#include <optional>
#include <string>

// Why an edit of the cover would harm the file that `data` reads, whatever its format; absent when
// it does not. `meta` is that file's.

std::optional<std::string> reasonAgainstRemovingCover(
    KXMDFileMeta const& meta, KXAbstractData& data);

std::optional<std::string> reasonAgainstAddingCover(
    KXMDFileMeta const& meta, KXData const& encodedPicture, KXAbstractData& data);
