#pragma once

#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/platform/KXMediaProbe.h>

#include <optional>
#include <string>
#include <string_view>

// What is found in files, in words for a person.

/// The kind of a file that begins as `detectedType`; the container for one that only the movie
/// library knows.
std::string nameOfType(
    KXMDMetaType detectedType, KXMDFileMeta const& meta, std::optional<KXMediaProbe> const& probe);

/// Such as "video".
std::string_view nameOfKind(KXMediaStream::Kind kind);

/// Such as "AAC Audio/Low Complexity Level:0".
std::string describeCodec(KXMDCodecInfo const& info);

/// Such as "flac, 44100 Hz, 2 channels, 16 bit".
std::string describeStream(KXMediaStream const& stream);

/// What cover an MP3 or MP4 file has.
std::string describeCover(KXMDFileMeta const& meta);

/// Without the digits that nobody reads.
std::string shortNumber(double number);
