#pragma once

#include "kxmd/base/KXExport.h"

#include <cstdint>
#include <span>

/// What a file is to be shown by, as its first bytes tell; its name says nothing.
enum class KXFileContent : std::uint8_t {
    picture, ///< JPEG, PNG, GIF, BMP. Nobody else is asked for it.
    rarePicture, ///< Any other that we have a signature of.
    drawing, ///< SVG. Nobody else is asked for it.
    movie, ///< Or music.
    pdf,
    other,
};

/// How many first bytes are worth looking at.
constexpr std::size_t longestContentHead = 4096;

/// What the file is that begins with these bytes, at most `longestContentHead` of them.
KX_EXPORT_FOR_TESTS KXFileContent contentOfFileWithHead(std::span<std::uint8_t const> head);

/// Whether these bytes begin as a frame of MPEG audio (ISO/IEC 11172-3) or of AAC (ISO/IEC
/// 13818-7).
bool isAudioFrame(std::span<std::uint8_t const> head);
