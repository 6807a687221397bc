#pragma once

#include <string_view>

// Where the atoms are that tags and covers are read from and edited at.
inline constexpr std::string_view tagListPath = "moov/udta/meta/ilst";
inline constexpr std::string_view coverPath = "moov/udta/meta/ilst/covr";
inline constexpr std::string_view chunkOffsetTablePath = "moov/trak/mdia/minf/stbl/stco";
