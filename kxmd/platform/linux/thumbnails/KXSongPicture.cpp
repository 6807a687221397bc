#include "kxmd/platform/linux/thumbnails/KXSongPicturePrivate.h"

#include "kxmd/platform/linux/thumbnails/KXFileContentPrivate.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <vector>

namespace {

/// The length of the ID3v2 tag that the file begins with (ID3v2.4.0 structure, 3.1 and 3.4), 0
/// without one. Absent when it cannot be told.
std::optional<std::uint64_t> lengthOfTag(KXAbstractData& data)
{
    std::array<std::uint8_t, 10> header;
    data.setOffset(0);
    if (!data.readBytesTo(header.data(), header.size()))
        return std::nullopt;
    if (!std::ranges::equal(std::span(header).first(3), std::string_view("ID3")))
        return 0;
    std::uint64_t length = 0;
    for (std::uint8_t const byte : std::span(header).last(4)) {
        if (byte & 0x80) // Not sync-safe.
            return std::nullopt;
        length = length << 7 | byte;
    }
    constexpr std::uint8_t hasFooter = 0x10;
    return header.size() + length + (header[5] & hasFooter ? header.size() : 0);
}

/// Whether the bytes from `offset` on, as many as there are up to `count`, hold `text`.
bool isTextWithin(
    KXAbstractData& data, std::uint64_t offset, std::uint64_t count, std::string_view text)
{
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count));
    data.setOffset(offset);
    static_cast<void>(data.readBytesToMaxLength(bytes.data(), bytes.size())); // The rest is zeros.
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}

bool isAudioAt(KXAbstractData& data, std::uint64_t offset)
{
    std::array<std::uint8_t, 4> head;
    data.setOffset(offset);
    return data.readBytesTo(head.data(), head.size()) && isAudioFrame(head);
}

}

bool isSongWithoutPicture(KXAbstractData& data)
{
    constexpr std::uint64_t longestTag = 64 * 1024; // A longer one most likely holds a picture.
    constexpr std::uint64_t longestEnd = 256; // An ID3v1 tag, and the end of an APE tag before it.
    auto const length = lengthOfTag(data);
    // Both frames for pictures have it in their names, "APIC" and "PIC".
    if (!length || *length > longestTag || isTextWithin(data, 0, *length, "PIC")
        || !isAudioAt(data, *length))
        return false;
    std::uint64_t const end = std::min(data.length(), longestEnd);
    return !isTextWithin(data, data.length() - end, end, "APETAGEX") && !data.readError();
}
