#pragma once

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// The metadata of an MP4 or QuickTime file: the tags of its iTunes tag list, the codecs of its
/// tracks, its album covers.
class KX_EXPORT KXMDFileMetaMP4 final : public KXMDFileMeta {
public:
    /// `init` An object without tags and atoms, until it parses a file.
    KXMDFileMetaMP4();

    bool parseAbstractData(KXAbstractData& data) override;

    [[nodiscard]] bool containsVideo() const override;
    [[nodiscard]] KXMDCodecInfo::List videoCodecsInfo() const override;
    [[nodiscard]] KXMDCodecInfo::List audioCodecsInfo() const override;

    /// `hasValidAlbumCover` Whether the widest embedded cover is at least 200 pixels wide and the
    /// tallest at least 200 high; the two may be different covers.
    [[nodiscard]] bool hasValidAlbumCover() const override;

    /// `canInsertAlbumCover` Whether the file has a tag list and a 32-bit chunk offset table.
    /// Neither is ever created.
    [[nodiscard]] bool canInsertAlbumCover() const override;

    /// `albumCoverFromData:` The first embedded cover that decodes, of the file that `data` reads
    /// and this object was parsed from.
    [[nodiscard]] ImageRef albumCoverFromData(KXAbstractData& data) const override;

    /// `removeAlbumCoverFromData:` Removes the covers one by one, the last first. False as well for
    /// a file without a 32-bit chunk offset table, which is never edited.
    ///
    /// The object is then parsed from the edited bytes, as after `addAlbumCover:toData:`.
    bool removeAlbumCoverFromData(KXMutableData::Ref const& data) override;

    /// `addAlbumCover:toData:` Inserts the cover before the tag list's last tag, so an empty tag
    /// list cannot take one.
    bool addAlbumCoverToData(ImageRef const& image, KXMutableData::Ref const& data) override;
    bool addEncodedAlbumCoverToData(KXData const& picture, KXMutableData::Ref const& data) override;

    /// `albumCoverAtomDataForImage:` A whole cover atom with `image` as JPEG, as iTunes writes it;
    /// empty without an image.
    [[nodiscard]] KXData albumCoverAtomDataForImage(ImageRef const& image) const;

    [[nodiscard]] std::uint64_t albumCoverSizeForImage(ImageRef const& image) const override;
    [[nodiscard]] std::uint64_t albumCoverSizeForEncodedImage(KXData const& picture) const override;
    [[nodiscard]] std::uint64_t albumCoverSizeForEmbeddedTags() const override;

private:
    bool parseMutableData(KXMutableData::Ref const& data);
    bool hasChunkOffsetTable() const;
    KXMP4Atom::List atomsWithPath(std::string_view path) const;
    KXMDCodecInfo::List codecsInfoOfTracks(KXMP4TrackType type) const;
};
