#pragma once

#include "kxmd/base/KXAbstractData.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The formats of pictures that we tell from their first bytes.
enum class KXPictureFormat : std::uint8_t {
    jpeg,
    png,
    gif,
    tiff,
    webp,
    heif, ///< Of any codec, AV1 among them.
    heifSequence, ///< A row of such pictures.
    icon, ///< Of Windows.
    bmp,
    uncommon, ///< One of the formats that decoders of movies know as well.
    unknown,
};

constexpr std::string_view signatureOfJPEG = "\xFF\xD8"; // ITU-T T.81, B.1.1.3: start of image.
constexpr std::string_view signatureOfPNG = "\x89PNG\r\n\x1A\n"; // ISO/IEC 15948, 5.2.

/// Bytes that pictures of one format have at one place.
struct KXPictureSignature {
    std::size_t position;
    std::string_view bytes;
    KXPictureFormat format;

    /// Whether a file that begins with `head` has them.
    constexpr bool matches(std::string_view head) const
    {
        return head.size() > position && head.substr(position).starts_with(bytes);
    }
};

/// All of them, the weakest last.
constexpr KXPictureSignature pictureSignatures[] {
    { 0, signatureOfJPEG, KXPictureFormat::jpeg },
    { 0, signatureOfPNG, KXPictureFormat::png },
    { 0, "GIF8", KXPictureFormat::gif }, // GIF89a, 17; see `isVersionOfGIF`.
    { 0, std::string_view("II*\0", 4), KXPictureFormat::tiff }, // TIFF 6.0, section 2.
    { 0, std::string_view("MM\0*", 4), KXPictureFormat::tiff },
    { 0, std::string_view("\0\0\1\0", 4), KXPictureFormat::icon },
    { 8, "WEBP", KXPictureFormat::webp }, // RFC 9649, 2.4.
    { 4, "ftypmif1", KXPictureFormat::heif }, // ISO/IEC 23008-12, 10.2.
    { 4, "ftypmsf1", KXPictureFormat::heifSequence },
    { 4, "ftyphei", KXPictureFormat::heif }, // ISO/IEC 23008-12, B.4: pictures of HEVC.
    { 4, "ftyphev", KXPictureFormat::heifSequence },
    { 4, "ftypavi", KXPictureFormat::heif }, // AVIF, 6: pictures and sequences.
    { 0, std::string_view("\0\0\0\x0CjP  ", 8), KXPictureFormat::uncommon }, // JPEG 2000.
    { 0, "\xFF\x4F\xFF\x51", KXPictureFormat::uncommon }, // Its code stream: ITU-T T.800, A.4.
    { 0, std::string_view("\0\0\0\x0CJXL ", 8), KXPictureFormat::uncommon }, // ISO/IEC 18181-2.
    { 0, "\x76\x2F\x31\x01", KXPictureFormat::uncommon }, // OpenEXR.
    { 0, "8BPS", KXPictureFormat::uncommon }, // Photoshop.
    { 0, "qoif", KXPictureFormat::uncommon },
    { 0, "DDS ", KXPictureFormat::uncommon },
    { 0, "\xFF\x0A", KXPictureFormat::uncommon }, // The code stream of JPEG XL: ISO/IEC 18181-1.
    { 0, "BM", KXPictureFormat::bmp },
};

/// A portable map of bits, greys or colours, in text or in bytes: white space, and then its width
/// or a comment.
constexpr bool isPortableMap(std::string_view head)
{
    constexpr std::string_view whiteSpace = " \t\n\v\f\r", next = "0123456789#";
    if (head.size() < 3 || head[0] != 'P' || head[1] < '1' || head[1] > '6'
        || whiteSpace.find(head[2]) == std::string_view::npos)
        return false;
    std::size_t const first = head.find_first_not_of(whiteSpace, 2);
    return first != std::string_view::npos && next.find(head[first]) != std::string_view::npos;
}

/// How many first bytes tell the format.
constexpr std::size_t lengthOfPictureHead = 12;

/// The format of a picture that begins with `head`: all of its bytes, or `lengthOfPictureHead`.
constexpr KXPictureFormat formatOfPictureWithHead(std::string_view head)
{
    for (auto const& signature : pictureSignatures) {
        if (signature.matches(head))
            return signature.format;
    }
    return isPortableMap(head) ? KXPictureFormat::uncommon : KXPictureFormat::unknown;
}

/// Whether a picture with the signature of a GIF is of one of the two versions that there are.
constexpr bool isVersionOfGIF(std::string_view head)
{
    return head.starts_with("GIF87a") || head.starts_with("GIF89a");
}

/// More than any picture has that somebody wants to see.
constexpr std::uint64_t mostPictureBytes = std::uint64_t { 256 } << 20;

/// The next `length` bytes of `data`; none when they are more than that, or than there are.
inline std::vector<std::uint8_t> bytesOfPicture(KXAbstractData& data, std::uint64_t length)
{
    if (length > mostPictureBytes || length > data.remainingLength())
        return {};
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(length));
    return data.readBytesTo(bytes.data(), bytes.size()) ? bytes : std::vector<std::uint8_t>();
}

/// The head of the picture in the next `length` bytes of `data`, which stays where it is.
inline std::string headOfPicture(KXAbstractData& data, std::uint64_t length)
{
    std::string head(
        static_cast<std::size_t>(std::min<std::uint64_t>(length, lengthOfPictureHead)), '\0');
    std::uint64_t const start = data.offset();
    head.resize(static_cast<std::size_t>(
        data.readBytesToMaxLength(reinterpret_cast<std::uint8_t*>(head.data()), head.size())));
    data.setOffset(start);
    return head;
}
