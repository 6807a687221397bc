#pragma once

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp4/KXMP4Atom.h"

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
    /// highest at least 200 high; the two may be different covers.
    [[nodiscard]] bool hasValidAlbumCover() const override;

    /// `canInsertAlbumCover` Whether the file has a tag list and a 32-bit chunk offset table.
    /// Neither is ever created.
    [[nodiscard]] bool canInsertAlbumCover() const override;

    [[nodiscard]] std::uint64_t albumCoverSizeForEmbeddedTags() const override;

private:
    KXMP4Atom::List atomsWithPath(std::string_view path) const;
    KXMDCodecInfo::List codecsInfoOfTracks(KXMP4TrackType type) const;
};
