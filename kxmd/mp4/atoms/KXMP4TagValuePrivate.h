#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXData.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

// The value of a tag in the tag list of iTunes: a "data" atom, of which only the first counts. Its
// header: size, type, type indicator (version and flags), locale, 32 bits each.

/// The text that the next bytes hold as a tag's value, in UTF-8; absent without one of at least a
/// byte. Longer texts than 254 bytes are left out, not cut.
[[nodiscard]] std::optional<std::string> readTagText(KXAbstractData& data);

/// The length in bytes of the JPEG or PNG picture that the next bytes hold as a tag's value, by its
/// header alone; absent for another value. Leaves the reader where the picture begins.
[[nodiscard]] std::optional<std::uint32_t> readTagPictureLength(KXAbstractData& data);

/// A cover's whole atom with a JPEG file.
[[nodiscard]] KXData coverAtomWithJPEG(std::span<std::uint8_t const> picture);

/// Bytes of `coverAtomWithJPEG` besides the picture.
constexpr std::uint32_t coverAtomHeadersSize = 24;

/// Moves past the headers of a cover's whole atom of `size` bytes, where the reader stands; stays
/// where there are none. Returns the bytes that may be a picture.
[[nodiscard]] std::uint64_t skipCoverAtomHeaders(KXAbstractData& data, std::uint64_t size);
