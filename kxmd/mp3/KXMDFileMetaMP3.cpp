#include "kxmd/mp3/KXMDFileMetaMP3.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/core/KXAlbumCoverRulePrivate.h"

#include <algorithm>
#include <iterator>
#include <ranges>

namespace {

// ID3v2.2.0, 3.1; ID3v2.3.0, 3.1; ID3v2.4.0 structure, 3.1.
constexpr std::uint8_t unsynchronisationFlag = 0x80;
constexpr std::uint8_t compressionFlag = 0x40; ///< In version 2.2.
constexpr std::uint8_t extendedHeaderFlag = 0x40; ///< In versions 2.3 and 2.4.

struct FrameIdentifiers {
    std::string_view title, artist, albumArtist, album, albumCover, mimeJPEG;
};

constexpr FrameIdentifiers identifiersOfVersion2 { "TT2", "TP1", "", "TAL", "PIC", "JPG" };
constexpr FrameIdentifiers identifiersOfVersions3And4 { "TIT2", "TPE1", "TPE2", "TALB", "APIC",
    "image/jpeg" };

constexpr FrameIdentifiers identifiersOfVersion(std::uint16_t majorVersion)
{
    switch (majorVersion) {
    case KXID3Version2:
        return identifiersOfVersion2;
    case KXID3Version3:
    case KXID3Version4:
        return identifiersOfVersions3And4;
    }
    return {};
}

}

KXMDFileMetaMP3::KXMDFileMetaMP3()
    : _id3Frames(std::make_shared<KXMDFileMetaMP3Frame::List const>())
{
    setMetaType(KXMDMetaTypeMP3);
}

std::string_view KXMDFileMetaMP3::titleTag() const
{
    return identifiersOfVersion(majorVersion()).title;
}

std::string_view KXMDFileMetaMP3::albumTag() const
{
    return identifiersOfVersion(majorVersion()).album;
}

std::string_view KXMDFileMetaMP3::albumArtistTag() const
{
    return identifiersOfVersion(majorVersion()).albumArtist;
}

std::string_view KXMDFileMetaMP3::artistTag() const
{
    return identifiersOfVersion(majorVersion()).artist;
}

std::string_view KXMDFileMetaMP3::albumCoverTag() const
{
    return identifiersOfVersion(majorVersion()).albumCover;
}

std::string_view KXMDFileMetaMP3::mimeJPEG() const
{
    return identifiersOfVersion(majorVersion()).mimeJPEG;
}

bool KXMDFileMetaMP3::parseAbstractData(KXAbstractData& data)
{
    data.budget() = KXParseBudget();
    if (!readHeader(data))
        return false;
    readFrames(data);
    takeMetadataFromFrames();
    return true;
}

/// Reads the tag's header, the extended one as well; stores nothing before the tag is accepted.
bool KXMDFileMetaMP3::readHeader(KXAbstractData& data)
{
    std::optional<std::string> identifier;
    std::uint16_t version;
    std::uint8_t flags;
    std::uint32_t syncSafeSize;
    data.setOffset(0);
    if (!data.readStringTo(identifier, 3, KXStringEncodingLatin1) || *identifier != "ID3"
        || !data.readUInt16To(version, KXSwap::yes) || !data.readUInt8To(flags)
        || !data.readUInt32To(syncSafeSize, KXSwap::no))
        return false;

    std::uint16_t const major = version & 0xFF00;
    if (major < KXID3Version2 || major > KXID3Version4) {
        KXLog("Metadata", "Version not supported");
        return false;
    }
    if (flags & unsynchronisationFlag) {
        KXLog("Metadata", "Unsynchronization not supported");
        return false;
    }
    if (major == KXID3Version2 && flags & compressionFlag) {
        KXLog("Metadata", "Compression not supported");
        return false;
    }

    setFilesize(data.length());
    _id3Flags = flags;
    _id3Version = version;
    _headerSize = KXMDFileMetaMP3Frame::syncSafeSizeToSize(syncSafeSize);

    std::uint32_t extendedHeaderSize = 0;
    if (major == KXID3Version4 && flags & extendedHeaderFlag) {
        KXLog("Metadata", "Contains extended header v2.4");
        // Deliberate: it counts its own four bytes, which are skipped once more all the same.
        extendedHeaderSize
            = KXMDFileMetaMP3Frame::syncSafeSizeToSize(data.readUInt32OrZero(KXSwap::no));
    } else if (major == KXID3Version3 && flags & extendedHeaderFlag) {
        KXLog("Metadata", "Contains extended header v2.3");
        extendedHeaderSize = data.readUInt32OrZero(KXSwap::yes);
    }
    data.skipBytes(extendedHeaderSize);
    return true;
}

void KXMDFileMetaMP3::readFrames(KXAbstractData& data)
{
    KXMDFileMetaMP3Frame::List frames;
    // The size does not count the header's ten bytes, yet positions in the file are held against
    // it: frames that begin in the tag's last ten bytes are left out, on purpose.
    while (data.offset() < _headerSize) {
        auto frame = KXMDFileMetaMP3Frame::frameWithData(data, _id3Version);
        if (!frame
            || !data.budget().takeNode("KXMDFileMetaMP3->too many frames, the rest is left out"))
            break;
        bool const advances = frame->size() != 0; // Sizes wrap in 32 bits.
        frames.push_back(std::move(frame));
        if (!advances)
            break;
    }
    _id3Frames.store(std::make_shared<KXMDFileMetaMP3Frame::List const>(std::move(frames)));
}

void KXMDFileMetaMP3::takeMetadataFromFrames()
{
    clearMetadata();
    auto const identifiers = identifiersOfVersion(majorVersion());
    std::pair<std::string_view, std::string_view> const tagKeys[] {
        { identifiers.title, KXMDMetadataKeyName },
        { identifiers.artist, KXMDMetadataKeyArtist },
        { identifiers.albumArtist, KXMDMetadataKeyAlbumArtist },
        { identifiers.album, KXMDMetadataKeyAlbum },
    };
    auto const frames = this->frames();
    for (auto const& [identifier, key] : tagKeys) {
        if (identifier.empty())
            continue;
        // Only the last frame counts, also when its text could not be decoded.
        auto const last = std::ranges::find(
            frames->rbegin(), frames->rend(), identifier, &KXMDFileMetaMP3Frame::tag);
        if (last != frames->rend())
            setMetadataForKey((*last)->content(), key);
    }
}

std::optional<KXMDFileMetaMP3Frame::List> KXMDFileMetaMP3::allFramesWithTag(
    std::string_view tag) const
{
    if (tag.empty())
        return std::nullopt;
    KXMDFileMetaMP3Frame::List found;
    std::ranges::copy_if(*frames(), std::back_inserter(found),
        [tag](auto const& frame) { return frame->tag() == tag; });
    return found;
}

KXMDFileMetaMP3Frame::List KXMDFileMetaMP3::albumCoverFrames() const
{
    return allFramesWithTag(albumCoverTag()).value_or(KXMDFileMetaMP3Frame::List());
}

KXMDCodecInfo::List KXMDFileMetaMP3::audioCodecsInfo() const
{
    KXMDCodecInfo info;
    info.setCodec(KXMDCodecMP3);
    return { info };
}

bool KXMDFileMetaMP3::hasValidAlbumCover() const
{
    KXAlbumCoverRule rule;
    for (auto const& frame : albumCoverFrames())
        rule.addCoverOfSize(frame->albumCoverSize());
    return rule.isMet();
}

bool KXMDFileMetaMP3::canInsertAlbumCover() const { return !frames()->empty(); }
