#include "kxmd/core/KXMDFileMeta.h"

#include <algorithm>

namespace {

bool startsWith(KXAbstractData& data, std::uint64_t offset, std::string_view signature)
{
    std::optional<std::string> text;
    data.setOffset(offset);
    return data.readStringTo(text, signature.size(), KXStringEncodingLatin1) && *text == signature;
}

KXMDMetaType detectedType(KXAbstractData& data)
{
    if (startsWith(data, 0, "ID3"))
        return KXMDMetaTypeMP3;
    if (startsWith(data, 4, "ftyp") || startsWith(data, 4, "moov"))
        return KXMDMetaTypeMP4;
    constexpr std::uint16_t startOfImage = 0xFFD8; // ITU-T T.81, table B.1.
    data.setOffset(0);
    return data.readUInt16OrZero(KXSwap::yes) == startOfImage ? KXMDMetaTypeJPEG
                                                              : KXMDMetaTypeUnknown;
}

}

KXMDMetaType KXMDFileMeta::metaTypeForData(KXAbstractData& data)
{
    KXMDMetaType const type = detectedType(data);
    data.setOffset(0);
    return type;
}

KXMDFileMeta::~KXMDFileMeta() = default;

bool KXMDFileMeta::parseAbstractData(KXAbstractData& data)
{
    _filesize = data.length();
    return true;
}

void KXMDFileMeta::clearMetadata() { _metadata.lock()->clear(); }

void KXMDFileMeta::setMetadataForKey(std::optional<std::string> value, std::string_view key)
{
    if (!value || key.empty())
        return;
    auto const metadata = _metadata.lock();
    auto const found = std::ranges::find(*metadata, key, &Dictionary::value_type::first);
    if (found != metadata->end()) {
        found->second = std::move(*value);
        return;
    }
    constexpr std::size_t usualEntries = 4;
    if (metadata->empty())
        metadata->reserve(usualEntries);
    metadata->emplace_back(key, std::move(*value));
}

std::optional<std::string> KXMDFileMeta::metadataForKey(std::string_view key) const
{
    auto const metadata = _metadata.lock();
    auto const found = std::ranges::find(*metadata, key, &Dictionary::value_type::first);
    return found == metadata->end() ? std::nullopt : std::optional(found->second);
}

bool KXMDFileMeta::containsVideo() const { return false; }

KXMDCodecInfo::List KXMDFileMeta::videoCodecsInfo() const { return {}; }

KXMDCodecInfo::List KXMDFileMeta::audioCodecsInfo() const { return {}; }

bool KXMDFileMeta::hasValidAlbumCover() const { return true; }

bool KXMDFileMeta::canInsertAlbumCover() const { return false; }

std::uint64_t KXMDFileMeta::filesizeWithValidAlbumCover(ImageRef const& image)
{
    if (!_filesizeWithAlbumCover) {
        _filesizeWithAlbumCover = _filesize;
        if (!hasValidAlbumCover())
            _filesizeWithAlbumCover
                += albumCoverSizeForImage(image) - albumCoverSizeForEmbeddedTags();
    }
    return _filesizeWithAlbumCover;
}

KXMDFileMeta::ImageRef KXMDFileMeta::albumCoverFromData(KXAbstractData&) const { return nullptr; }

bool KXMDFileMeta::removeAlbumCoverFromData(KXMutableData::Ref const&) { return false; }

bool KXMDFileMeta::addAlbumCoverToData(ImageRef const&, KXMutableData::Ref const&) { return false; }

std::uint64_t KXMDFileMeta::albumCoverSizeForImage(ImageRef const&) const { return 0; }

std::uint64_t KXMDFileMeta::albumCoverSizeForEmbeddedTags() const { return 0; }
