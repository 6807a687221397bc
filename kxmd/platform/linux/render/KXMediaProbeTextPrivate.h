#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXMediaProbe.h"

#include <optional>
#include <string>
#include <string_view>

/// The names of tags that a probe may have, sorted; those that FFmpeg gives tags of all containers
/// (libavformat, "Metadata API").
constexpr std::string_view mediaProbeTags[] { "album", "album_artist", "artist", "comment",
    "composer", "copyright", "date", "description", "disc", "encoder", "episode_id", "genre",
    "performer", "publisher", "season_number", "show", "title", "track" };

/// The most streams and pictures that a probe may have, of each.
constexpr std::size_t mostMediaProbeStreams = 256;

/// `probe` as the render server sends it: names and values in turn, each followed by a zero byte.
/// Texts are cut at their first zero.
KX_EXPORT_FOR_TESTS std::string textOfMediaProbe(KXMediaProbe const& probe);

/// The probe in an untrusted text; absent when that is malformed or too long.
KX_EXPORT_FOR_TESTS std::optional<KXMediaProbe> mediaProbeOfText(std::string_view text);

/// The most bytes that such a text may have.
constexpr std::size_t longestMediaProbeText = 1 << 20;
