#include "kxmd/core/KXMDFileMeta.h"

#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/platform/KXPlatform.h"

#include <algorithm>
#include <array>

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

namespace {

/// The size of the file of `meta` with a valid cover; the size of a new one is asked for only when
/// it needs that.
template <class CoverSize>
std::uint64_t filesizeWithValidCover(KXMDFileMeta const& meta, CoverSize coverSize)
{
    if (meta.hasValidAlbumCover())
        return meta.filesize();
    return meta.filesize() - meta.albumCoverSizeForEmbeddedTags() + coverSize();
}

}

std::uint64_t KXMDFileMeta::filesizeWithValidAlbumCover(ImageRef const& image)
{
    if (!_filesizeWithAlbumCover)
        _filesizeWithAlbumCover
            = filesizeWithValidCover(*this, [&] { return albumCoverSizeForImage(image); });
    return _filesizeWithAlbumCover;
}

std::uint64_t KXMDFileMeta::filesizeWithValidEncodedAlbumCover(KXData const& picture)
{
    if (!_filesizeWithAlbumCover)
        _filesizeWithAlbumCover
            = filesizeWithValidCover(*this, [&] { return albumCoverSizeForEncodedImage(picture); });
    return _filesizeWithAlbumCover;
}

KXMDFileMeta::ImageRef KXMDFileMeta::albumCoverFromData(KXAbstractData&) const { return nullptr; }

bool KXMDFileMeta::removeAlbumCoverFromData(KXMutableData::Ref const&) { return false; }

bool KXMDFileMeta::addAlbumCoverToData(ImageRef const&, KXMutableData::Ref const&) { return false; }

bool KXMDFileMeta::addEncodedAlbumCoverToData(KXData const&, KXMutableData::Ref const&)
{
    return false;
}

std::uint64_t KXMDFileMeta::albumCoverSizeForImage(ImageRef const&) const { return 0; }

std::uint64_t KXMDFileMeta::albumCoverSizeForEncodedImage(KXData const&) const { return 0; }

std::uint64_t KXMDFileMeta::albumCoverSizeForEmbeddedTags() const { return 0; }

KXMDFileMeta::PlatformRef KXMDFileMeta::platform() const
{
    return _platform ? _platform : KXPlatform::shared();
}

KXData KXMDFileMeta::encodedAlbumCover(ImageRef const& image) const
{
    return image ? platform()->pictureLoader->jpgRepresentation(*image) : KXData();
}
