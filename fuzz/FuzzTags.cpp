// Edits of the covers of ID3v2 tags that are called safe: the music and all other frames are found
// afterwards, by a reader of our own that goes by the standards.

#include "AnyPicture.h"
#include "Choices.h"
#include "FuzzTarget.h"

#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp3/KXMP3EditSafety.h"
#include "kxmd/platform/KXPlatform.h"

#include <algorithm>
#include <string_view>

namespace {

using Bytes = std::vector<std::uint8_t>;

void append(Bytes& bytes, std::uint64_t value, unsigned width, unsigned bits = 8)
{
    for (unsigned left = width; left; --left)
        bytes.push_back(static_cast<std::uint8_t>(value >> (left - 1) * bits & ((1u << bits) - 1)));
}

std::uint64_t numberAt(Bytes const& bytes, std::size_t position, unsigned width, unsigned bits = 8)
{
    std::uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = value << bits | (bytes[position + i] & ((1u << bits) - 1));
    return value;
}

/// A frame as the fuzzer chooses, its size now and then written as in the version before.
Bytes frame(Choices& choices, unsigned version)
{
    constexpr std::string_view identifiers[] { "TIT2", "APIC", "PRIV", "TALB", "APIC", "TXXX" };
    constexpr std::string_view shortIdentifiers[] { "TT2", "PIC", "ULT", "TAL", "PIC", "TXX" };
    auto const choice = choices.next<std::uint8_t>();
    auto const identifier = (version == 2 ? shortIdentifiers : identifiers)[choice % 6];
    std::size_t const length = choices.next<std::uint16_t>() % 400;
    Bytes bytes(identifier.begin(), identifier.end());
    if (version == 2)
        append(bytes, length, 3);
    else
        append(bytes, length, 4, version == 4 && choice < 0xC0 ? 7 : 8);
    if (version != 2)
        append(bytes, choice == 0x80 ? choices.next<std::uint16_t>() : 0, 2);
    std::size_t const body = bytes.size();
    bytes.resize(body + length, choice / 8 % 4 == 3 ? 0 : 'b');
    for (std::size_t i = 0; i < std::min<std::size_t>(choice / 8 % 4 * 4, length); ++i)
        bytes[body + i] = choices.next<std::uint8_t>();
    return bytes;
}

/// A file with a tag, and music after it.
Bytes fileOf(Choices& choices)
{
    auto const flags = choices.next<std::uint8_t>();
    unsigned const version = 2 + flags % 3;
    bool const isExtended = flags & 0x40 && version > 2, hasFooter = flags & 0x10 && version == 4;
    std::size_t const padding = choices.next<std::uint8_t>() % 32;
    auto const lie = choices.next<std::uint8_t>();
    Bytes content;
    if (isExtended && version == 3)
        append(content, 6, 4), append(content, 0, 6);
    if (isExtended && version == 4)
        append(content, 6, 4, 7), append(content, 0x0100, 2);
    while (choices.areLeft() && content.size() < 8192) {
        Bytes const next = frame(choices, version);
        content.insert(content.end(), next.begin(), next.end());
    }
    content.resize(content.size() + padding);
    Bytes file { 'I', 'D', '3', static_cast<std::uint8_t>(version), 0,
        static_cast<std::uint8_t>((isExtended ? 0x40 : 0) | (hasFooter ? 0x10 : 0)) };
    append(
        file, content.size() + (lie >= 0xE0 ? lie % 32 : 0) - (lie / 32 == 6 ? lie % 32 : 0), 4, 7);
    file.insert(file.end(), content.begin(), content.end());
    file.insert(file.end(), { 0xFF, 0xFB, 0x90, 0x00 });
    file.resize(file.size() + 100, 'm');
    return file;
}

/// What stands in a file by the standards: ID3v2.2.0, ID3v2.3.0 and ID3v2.4.0.
class Tag {
public:
    /// Sizes of frames have so many bits in a byte.
    Tag(Bytes const& file, unsigned bitsOfSizes)
        : _file(file)
        , _bits(bitsOfSizes)
        , _isClear(read())
    {
    }

    /// Whether the tag is as the standards want it, so that all programs read it alike.
    bool isClear() const { return _isClear; }
    /// All but the covers, up to where the tag is damaged.
    std::vector<Bytes> const& frames() const { return _frames; }
    Bytes const& music() const { return _music; }
    std::uint64_t coverBytes() const { return _coverBytes; }

private:
    bool read()
    {
        if (_file.size() < 10
            || std::string_view(reinterpret_cast<char const*>(_file.data()), 3) != "ID3")
            return false;
        _version = _file[3];
        std::uint8_t const flags = _file[5];
        bool const isSyncSafe = std::none_of(
            _file.begin() + 6, _file.begin() + 10, [](std::uint8_t byte) { return byte & 0x80; });
        if (_version < 2 || _version > 4 || flags & 0x80 || !isSyncSafe || (_version == 2 && flags))
            return false;
        std::uint64_t const end = 10 + numberAt(_file, 6, 4, 7);
        std::uint64_t at = 10;
        if (end > _file.size())
            return false;
        auto const rest = _file.begin() + static_cast<std::ptrdiff_t>(end);
        _music.assign(rest, _file.end());
        if (flags & 0x40) {
            if (end - at < 4)
                return false;
            at += _version == 3 ? 4 + numberAt(_file, at, 4) : numberAt(_file, at, 4, 7);
        }
        while (at < end && _file[at]) {
            if (!takeFrame(at, end))
                return false;
        }
        if (at > end
            || std::any_of(_file.begin() + static_cast<std::ptrdiff_t>(at), rest,
                [](std::uint8_t byte) { return byte; }))
            return false;
        return true;
    }

    bool takeFrame(std::uint64_t& at, std::uint64_t end)
    {
        std::uint64_t const header = _version == 2 ? 6 : 10;
        unsigned const identifierSize = _version == 2 ? 3 : 4;
        if (end - at < header)
            return false;
        std::string_view const identifier(
            reinterpret_cast<char const*>(_file.data()) + at, identifierSize);
        if (!isIdentifier(at, identifierSize))
            return false;
        std::uint64_t const size = numberAt(_file, at + identifierSize, identifierSize, _bits);
        if (size > end - at - header || isOfOtherSize(at, end))
            return false;
        auto const begin = _file.begin() + static_cast<std::ptrdiff_t>(at);
        auto const body = begin + static_cast<std::ptrdiff_t>(header);
        at += header + size;
        auto const frameEnd = _file.begin() + static_cast<std::ptrdiff_t>(at);
        if (identifier == "APIC" || identifier == "PIC")
            _coverBytes += header + size;
        else if (std::any_of(body, frameEnd, [](std::uint8_t byte) { return byte; }))
            _frames.emplace_back(begin, frameEnd); // Zeros alone say nothing, and may be padding.
        return true;
    }

    /// Whether a frame with a plain size where a sync-safe one is due would be read as the latter,
    /// since another frame follows there.
    bool isOfOtherSize(std::uint64_t at, std::uint64_t end) const
    {
        if (_version != 4 || _bits == 7)
            return false;
        std::uint64_t const next = at + 10 + numberAt(_file, at + 4, 4, 7);
        bool const isSame = numberAt(_file, at + 4, 4, 8) == numberAt(_file, at + 4, 4, 7);
        return !isSame && next + 4 <= end && isIdentifier(next, 4);
    }

    bool isIdentifier(std::uint64_t at, unsigned size) const
    {
        auto const begin = _file.begin() + static_cast<std::ptrdiff_t>(at);
        return std::all_of(begin, begin + size,
            [](std::uint8_t c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); });
    }

    Bytes const _file;
    unsigned const _bits;
    unsigned _version { 0 };
    std::vector<Bytes> _frames;
    Bytes _music;
    std::uint64_t _coverBytes { 0 };
    bool _isClear;
};

/// What other programs read; not clear where they disagree.
Tag tagOf(Bytes const& file)
{
    Tag plain(file, 8);
    bool const hasSyncSafeSizes = file.size() > 3 && file[3] == 4;
    if (!hasSyncSafeSizes)
        return plain;
    Tag syncSafe(file, 7);
    return syncSafe.isClear() || !plain.isClear() ? syncSafe : plain;
}

void checkEdit(Bytes const& file, bool isAdded, std::size_t pictureSize)
{
    auto const source = immutableReader(file.data(), file.size());
    KXMP3EditSafety const safety(*source);
    KXMDFileMetaMP3 meta;
    bool const isRead = meta.parseAbstractData(*source);
    KXData const picture(Bytes(pictureSize, 'p'));
    std::uint64_t const coverSize = meta.albumCoverSizeForEncodedImage(picture);
    std::uint64_t const found = meta.albumCoverSizeForEmbeddedTags();
    auto const reason = isAdded ? safety.reasonAgainstAddingAlbumCoverOfSize(coverSize)
                                : safety.reasonAgainstRemovingAlbumCover();
    auto const data = std::make_shared<KXMutableData>(file);
    bool const isDone = isAdded ? meta.addEncodedAlbumCoverToData(picture, data)
                                : meta.removeAlbumCoverFromData(data);
    KXMD_REQUIRE(isRead || !isDone);
    Tag const before = tagOf(file);
    if (reason || !before.isClear())
        return;
    auto const bytes = data->bytes();
    Tag const after = tagOf(Bytes(bytes.begin(), bytes.end()));
    // What is left of a cover of a wrong size may follow, as long as it hides nothing.
    KXMD_REQUIRE(after.frames() == before.frames());
    KXMD_REQUIRE(after.music() == before.music());
    if (!isDone || !after.isClear())
        return;
    KXMD_REQUIRE(data->length() + before.coverBytes() == file.size() + after.coverBytes());
    // Covers that begin in the last ten bytes of a tag are not found, and stay.
    std::uint64_t const inserted = isAdded ? coverSize : 0;
    KXMD_REQUIRE(
        after.coverBytes() >= inserted && after.coverBytes() + found >= before.coverBytes());
}

/// Pictures lie within the file, whatever their frames claim.
void checkPictures(Bytes const& file)
{
    static auto const platform = [] {
        auto own = std::make_shared<KXPlatform>();
        own->pictureLoader = std::make_shared<AnyPicture const>();
        return own;
    }();
    auto const source = immutableReader(file.data(), file.size());
    KXMDFileMetaMP3 meta;
    meta.setPlatform(platform);
    if (!meta.parseAbstractData(*source))
        return;
    auto const cover = meta.albumCoverFromData(*source);
    KXMD_REQUIRE(!cover || meta.albumCoverSizeForEmbeddedTags());
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    Choices choices(bytes, length);
    auto const kind = choices.next<std::uint8_t>();
    std::size_t const pictureSize = choices.next<std::uint16_t>() % 1024;
    auto const rest = choices.rest();
    Bytes const file = kind & 6 ? fileOf(choices) : Bytes(rest.begin(), rest.end());
    checkEdit(file, kind & 1, pictureSize);
    checkPictures(file);
    return 0;
}
