#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"

#include <cstdint>
#include <optional>
#include <string>

/// Predicts whether other programs will still find an MP3 file's music, and the other frames of its
/// ID3v2 tag, after an edit of its cover.
///
/// The edits of `KXMDFileMetaMP3` assume that frames lie where it read them. That is right for most
/// files; damaged tags, and a few that we read differently from other programs, lose music or
/// frames. The edits themselves do not ask; whoever makes them should. A version 2.4 footer keeps
/// the old size: footers are for finding a tag after the music, and these tags come before it.
///
/// A reason is a part of an English sentence for a person: "a cover runs past the end of the tag".
/// Where there is nothing to edit, there is none. One thread at a time.
class KX_EXPORT KXMP3EditSafety {
public:
    /// `initWithAbstractData:` Reads the tag of the file that `data` reads, which is then no longer
    /// needed.
    explicit KXMP3EditSafety(KXAbstractData& data);

    /// `reasonAgainstRemovingAlbumCover` Why `removeAlbumCoverFromData:` of `KXMDFileMetaMP3` would
    /// do harm; absent when it does not.
    [[nodiscard]] std::optional<std::string> reasonAgainstRemovingAlbumCover() const;

    /// `reasonAgainstAddingAlbumCoverOfSize:` The same for `addAlbumCover:toData:`, which removes
    /// the covers that are there. `frameSize` in bytes, as `albumCoverSizeForImage:` tells it.
    [[nodiscard]] std::optional<std::string> reasonAgainstAddingAlbumCoverOfSize(
        std::uint64_t frameSize) const;

private:
    enum class Length { same, longer, longerAndLast };

    [[nodiscard]] std::optional<std::string> reasonAgainstAnyEdit() const;
    [[nodiscard]] std::uint64_t endOfTag() const;
    [[nodiscard]] bool hasCoverPastItsEnd() const;
    [[nodiscard]] bool isReadByOthersAlike(KXAbstractData& data) const;
    [[nodiscard]] Length lengthForOthers(
        KXMDFileMetaMP3Frame const& frame, KXAbstractData& data) const;

    KXMDFileMetaMP3 _meta;
    bool _isMP3;
    bool _isReadByOthersAlike;
};
