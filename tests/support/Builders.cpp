#include "support/Builders.h"

#include <algorithm>

namespace build {

namespace {

    Bytes bigEndian(std::uint64_t value, int count)
    {
        Bytes result;
        for (int shift = (count - 1) * 8; shift >= 0; shift -= 8)
            result.push_back(static_cast<std::uint8_t>(value >> shift));
        return result;
    }

    std::uint32_t sizeOf(Bytes const& bytes) { return static_cast<std::uint32_t>(bytes.size()); }

    Bytes descriptor(std::uint32_t tag, Bytes const& content)
    {
        return join(u8(tag), u8(sizeOf(content)), content);
    }

    /// ISO/IEC 15948, annex D, bit by bit.
    std::uint32_t crc32(Bytes const& bytes)
    {
        std::uint32_t crc = 0xFFFFFFFF;
        for (std::uint8_t const byte : bytes) {
            crc ^= byte;
            for (int bit = 0; bit < 8; ++bit)
                crc = crc & 1 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
        }
        return ~crc;
    }

}

Bytes text(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes bytes(std::initializer_list<int> values)
{
    Bytes result;
    for (int const value : values)
        result.push_back(static_cast<std::uint8_t>(value));
    return result;
}

Bytes u8(std::uint32_t value) { return bigEndian(value, 1); }
Bytes u16(std::uint32_t value) { return bigEndian(value, 2); }
Bytes u24(std::uint32_t value) { return bigEndian(value, 3); }
Bytes u32(std::uint32_t value) { return bigEndian(value, 4); }
Bytes u64(std::uint64_t value) { return bigEndian(value, 8); }
Bytes zeros(std::size_t count) { return Bytes(count); }
Bytes filled(std::size_t count, std::uint8_t value) { return Bytes(count, value); }

Bytes syncSafe(std::uint32_t value)
{
    return join(
        u8(value >> 21 & 0x7F), u8(value >> 14 & 0x7F), u8(value >> 7 & 0x7F), u8(value & 0x7F));
}

Bytes utf16(std::u16string_view text)
{
    Bytes result = bytes({ 0xFF, 0xFE });
    for (char16_t const unit : text)
        result = join(std::move(result), u8(unit & 0xFFu), u8(unit >> 8));
    return result;
}

Bytes utf16BigEndian(std::u16string_view text)
{
    Bytes result;
    for (char16_t const unit : text)
        result = join(std::move(result), u16(unit));
    return result;
}

Bytes concatenated(std::vector<Bytes> const& pieces)
{
    Bytes result;
    for (auto const& piece : pieces)
        result.insert(result.end(), piece.begin(), piece.end());
    return result;
}

Bytes ftyp() { return atom("ftyp", text("M4A "), u32(0), text("isom")); }

Bytes hdlr(std::string_view handlerType)
{
    return atom("hdlr", u32(0), u32(0), text(handlerType), zeros(12), u8(0));
}

Bytes dataAtom(std::uint32_t typeIndicator, Bytes const& value)
{
    return atom("data", u32(typeIndicator), u32(0), value);
}

Bytes tagAtom(std::string_view type, std::string_view utf8)
{
    return atom(type, dataAtom(1, text(utf8)));
}

Bytes covr(std::uint32_t typeIndicator, Bytes const& picture)
{
    return atom("covr", dataAtom(typeIndicator, picture));
}

Bytes stco(std::vector<std::uint32_t> const& offsets)
{
    Bytes entries;
    for (std::uint32_t const offset : offsets)
        entries = join(std::move(entries), u32(offset));
    return atom("stco", u32(0), u32(static_cast<std::uint32_t>(offsets.size())), entries);
}

Bytes userDataWithTags(Bytes const& tags)
{
    return atom("udta", atom("meta", u32(0), hdlr("mdir"), atom("ilst", tags)));
}

Bytes soundEntry(
    std::string_view type, Bytes const& children, std::uint32_t channels, std::uint32_t version)
{
    Bytes const begin = join(zeros(6), u16(1), u16(version), u16(0), u32(0));
    constexpr std::uint32_t sampleRate = 44100;
    if (version == 2)
        return atom(type, begin, zeros(24), u32(channels), zeros(20), children);
    Bytes const fields = join(u16(channels), u16(16), u16(0), u16(0), u32(sampleRate << 16));
    return atom(type, begin, fields, zeros(version == 1 ? 16 : 0), children);
}

Bytes videoEntry(std::string_view type, std::uint32_t width, std::uint32_t height,
    Bytes const& children, std::uint32_t version)
{
    return atom(type, zeros(6), u16(1), u16(version), zeros(14), u16(width), u16(height), zeros(14),
        u8(5), text("coder"), zeros(26), u16(24), u16(0xFFFF), children);
}

Bytes stsd(Bytes const& entries) { return atom("stsd", u32(0), u32(1), entries); }

Bytes track(std::string_view handlerType, Bytes const& sampleDescriptionTable,
    std::vector<std::uint32_t> const& chunkOffsets)
{
    Bytes const mediaHeader
        = handlerType == "vide" ? atom("vmhd", zeros(12)) : atom("smhd", zeros(8));
    return atom("trak",
        atom("mdia", hdlr(handlerType),
            atom("minf", mediaHeader, atom("stbl", sampleDescriptionTable, stco(chunkOffsets)))));
}

Bytes esds(std::uint32_t objectType, std::uint32_t maxBitrate, std::uint32_t avgBitrate,
    Bytes const& decoderSpecificInfo)
{
    Bytes const configuration = join(u8(objectType), u8(0x15), u24(0), u32(maxBitrate),
        u32(avgBitrate), descriptor(5, decoderSpecificInfo));
    return atom("esds", u32(0), descriptor(3, join(u16(0), u8(0), descriptor(4, configuration))));
}

Bytes avcC(std::uint32_t profile, std::uint32_t level)
{
    return atom("avcC", u8(1), u8(profile), u8(0), u8(level), u8(0xFF), u8(0xE0), u8(0));
}

Bytes frameClaiming(ID3 version, std::uint32_t size, std::string_view identifier, Bytes const& body)
{
    switch (version) {
    case ID3::v22:
        return join(text(identifier), u24(size), body);
    case ID3::v23:
        return join(text(identifier), u32(size), u16(0), body);
    case ID3::v24:
        break;
    }
    return join(text(identifier), syncSafe(size), u16(0), body);
}

Bytes frame(ID3 version, std::string_view identifier, Bytes const& body, std::uint32_t flags)
{
    Bytes result = frameClaiming(version, sizeOf(body), identifier, body);
    if (version != ID3::v22) {
        Bytes const flagBytes = u16(flags);
        std::copy(flagBytes.begin(), flagBytes.end(), result.begin() + 8);
    }
    return result;
}

Bytes textFrame(ID3 version, std::string_view identifier, std::string_view latin1)
{
    return frame(version, identifier, join(u8(0), text(latin1)));
}

Bytes pictureFrame(ID3 version, Bytes const& picture)
{
    if (version == ID3::v22)
        return frame(version, "PIC", join(u8(0), text("JPG"), u8(0), u8(0), picture));
    return frame(version, "APIC", join(u8(0), text("image/jpeg"), u8(0), u8(0), u8(0), picture));
}

Bytes tag(ID3 version, Bytes const& frames, std::uint32_t flags)
{
    Bytes const content = join(frames, zeros(10));
    return tagClaiming(static_cast<std::uint16_t>(version), flags, sizeOf(content), content);
}

Bytes tagClaiming(
    std::uint32_t versionWord, std::uint32_t flags, std::uint32_t size, Bytes const& content)
{
    return join(text("ID3"), u16(versionWord), u8(flags), syncSafe(size), content);
}

Bytes jpeg(std::uint32_t width, std::uint32_t height, std::size_t length)
{
    Bytes result = join(bytes({ 0xFF, 0xD8 }), // Start of image.
        bytes({ 0xFF, 0xE0 }), u16(16), text("JFIF"), zeros(10), // Application segment.
        bytes({ 0xFF, 0xC0 }), u16(11), u8(8), u16(height), u16(width), u8(1), u8(1), u16(0x1100),
        bytes({ 0xFF, 0xDA }), u16(8), u8(1), u16(0x0100), bytes({ 0, 63, 0 })); // Scan.
    if (result.size() < length)
        result.resize(length, 0x55);
    return result;
}

Bytes pngChunk(std::string_view type, Bytes const& content)
{
    Bytes const checked = join(text(type), content);
    return join(u32(sizeOf(content)), checked, u32(crc32(checked)));
}

Bytes png(std::uint32_t width, std::uint32_t height)
{
    return join(bytes({ 0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n' }),
        pngChunk("IHDR", join(u32(width), u32(height), bytes({ 8, 2, 0, 0, 0 }))),
        pngChunk("IEND", {}));
}

Bytes gif(std::uint32_t width, std::uint32_t height)
{
    auto const littleEndian
        = [](std::uint32_t value) { return join(u8(value & 0xFF), u8(value >> 8 & 0xFF)); };
    return join(text("GIF89a"), littleEndian(width), littleEndian(height), bytes({ 0x80, 0, 0 }),
        bytes({ 0, 0, 0, 255, 255, 255 }), // Two colours.
        bytes({ 0x2C, 0, 0, 0, 0 }), littleEndian(width), littleEndian(height), u8(0),
        bytes({ 2, 2, 0x44, 1, 0 }), u8(0x3B));
}

KXAbstractData::Ref reader(Bytes bytes)
{
    return KXAbstractData::abstractDataWithData(KXData(std::move(bytes)));
}

}
