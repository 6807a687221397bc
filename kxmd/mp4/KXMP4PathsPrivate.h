#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <string_view>

// Where the atoms are that tags and covers are read from and edited at.
inline constexpr std::string_view tagListPath = "moov/udta/meta/ilst";
inline constexpr std::string_view coverPath = "moov/udta/meta/ilst/covr";
inline constexpr std::string_view chunkOffsetTablePath = "moov/trak/mdia/minf/stbl/stco";

/// The tag that a cover is inserted before: the last one of the last tag list. Null without one.
inline KXMP4Atom::Ref placeOfCover(KXMP4Atom& root)
{
    auto const tagLists = root.allAtomsWithPath(tagListPath);
    auto const tags = tagLists.empty() ? KXMP4Atom::List() : tagLists.back()->children();
    return tags.empty() ? nullptr : tags.back();
}
