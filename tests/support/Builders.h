#pragma once

// Builds the bytes of media files piece by piece, so that a test shows what its bytes mean. Never
// calls the library's own writers.

#include "kxmd/base/KXAbstractData.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace build {

using Bytes = std::vector<std::uint8_t>;

// Pieces.

Bytes text(std::string_view text); ///< The text's own bytes, no terminator.
Bytes bytes(std::initializer_list<int> values);
Bytes u8(std::uint32_t value);
Bytes u16(std::uint32_t value); ///< Big-endian, as are all numbers here.
Bytes u24(std::uint32_t value);
Bytes u32(std::uint32_t value);
Bytes u64(std::uint64_t value);
Bytes zeros(std::size_t count);
Bytes filled(std::size_t count, std::uint8_t value);
Bytes syncSafe(std::uint32_t value); ///< Four bytes of seven bits.
Bytes utf16(std::u16string_view text); ///< Little-endian after a byte-order mark.
Bytes utf16BigEndian(std::u16string_view text); ///< Without a byte-order mark.

inline Bytes join() { return {}; }

template <class... Pieces> Bytes join(Bytes first, Pieces const&... others)
{
    (first.insert(first.end(), others.begin(), others.end()), ...);
    return first;
}

Bytes concatenated(std::vector<Bytes> const& pieces);

// MP4 (ISO/IEC 14496-12).

/// An atom around its payload; `type` is four Latin-1 bytes ("\xA9nam").
template <class... Pieces> Bytes atom(std::string_view type, Pieces const&... payload)
{
    Bytes const content = join(Bytes(), payload...);
    return join(u32(static_cast<std::uint32_t>(content.size() + 8)), text(type), content);
}

/// An atom whose size field says `size`, whatever the payload is.
template <class... Pieces>
Bytes atomClaiming(std::uint32_t size, std::string_view type, Pieces const&... payload)
{
    return join(u32(size), text(type), payload...);
}

Bytes ftyp(); ///< A file type atom of brand "M4A ".
Bytes hdlr(std::string_view handlerType);
Bytes dataAtom(std::uint32_t typeIndicator, Bytes const& value); ///< Of an iTunes tag.
Bytes tagAtom(std::string_view type, std::string_view utf8); ///< A tag with its "data" atom.
Bytes covr(std::uint32_t typeIndicator, Bytes const& picture);
Bytes stco(std::vector<std::uint32_t> const& offsets);

/// "udta" with the whole way down to "ilst", of which `tags` are the children.
Bytes userDataWithTags(Bytes const& tags);

/// A sound sample entry of version 0 with two channels, or as given.
Bytes soundEntry(std::string_view type, Bytes const& children = {}, std::uint32_t channels = 2,
    std::uint32_t version = 0);
/// A video sample entry of version 0.
Bytes videoEntry(std::string_view type, std::uint32_t width, std::uint32_t height,
    Bytes const& children = {}, std::uint32_t version = 0);
/// A sample description table of version 0 that claims one entry.
Bytes stsd(Bytes const& entries);
/// A track with handler, media header ("vmhd" or "smhd"), sample description and chunk offset
/// table.
Bytes track(std::string_view handlerType, Bytes const& sampleDescriptionTable,
    std::vector<std::uint32_t> const& chunkOffsets = { 0 });

/// Elementary stream descriptor with all three descriptors; lengths of one byte.
Bytes esds(std::uint32_t objectType, std::uint32_t maxBitrate, std::uint32_t avgBitrate,
    Bytes const& decoderSpecificInfo);
Bytes avcC(std::uint32_t profile, std::uint32_t level);

// ID3v2.

enum class ID3 : std::uint16_t { v22 = 0x0200, v23 = 0x0300, v24 = 0x0400 };

/// A frame with the header of the version.
Bytes frame(ID3 version, std::string_view identifier, Bytes const& body, std::uint32_t flags = 0);
/// A frame whose header says `size`.
Bytes frameClaiming(
    ID3 version, std::uint32_t size, std::string_view identifier, Bytes const& body);
/// A text frame in Latin-1.
Bytes textFrame(ID3 version, std::string_view identifier, std::string_view latin1);
/// A picture frame with picture type 0 and an empty description.
Bytes pictureFrame(ID3 version, Bytes const& picture);
/// A tag: header and frames. The size covers the frames and ten bytes of padding, so that a reader
/// that leaves out the last ten bytes sees every frame.
Bytes tag(ID3 version, Bytes const& frames, std::uint32_t flags = 0);
/// A tag's header that says `size`, followed by `content`.
Bytes tagClaiming(
    std::uint32_t versionWord, std::uint32_t flags, std::uint32_t size, Bytes const& content);

// Pictures: headers only, no pixels; enough to be measured.

Bytes jpeg(
    std::uint32_t width, std::uint32_t height, std::size_t length = 0); ///< Filled up to `length`.
Bytes pngChunk(std::string_view type, Bytes const& content);
Bytes png(std::uint32_t width, std::uint32_t height);
Bytes gif(std::uint32_t width, std::uint32_t height); ///< A whole GIF of one colour.

// Readers.

KXAbstractData::Ref reader(Bytes bytes);

}
