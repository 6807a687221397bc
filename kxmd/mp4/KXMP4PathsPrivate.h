#pragma once

#include <cstddef>
#include <string_view>

// Where the atoms are that tags and covers are read from and edited at.
inline constexpr std::string_view tagListPath = "moov/udta/meta/ilst";
inline constexpr std::string_view coverPath = "moov/udta/meta/ilst/covr";
inline constexpr std::string_view chunkOffsetTablePath = "moov/trak/mdia/minf/stbl/stco";

// Each removal moves the file's bytes and parses them anew. Real files have a handful of covers;
// one with more than this was made to keep us busy, and none of them is removed.
inline constexpr std::size_t mostRemovableCovers = 1024;
