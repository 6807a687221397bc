#pragma once

#include "kxmd/host/KXAbstractData.h"
#include "kxmd/host/KXExport.h"
#include "kxmd/mp4/KXMP4Atom.h"

#include <cstdint>
#include <optional>
#include <string>

class KXMP4EditPlan;

/// Tells beforehand whether an edit of an MP4 or QuickTime file leaves its media where the file
/// says they are.
///
/// The edits of `KXMP4Atom` correct 32-bit sizes and chunk offset tables, by simple rules. That is
/// right for most files; in others (with 64-bit tables, in fragments, over 4 GiB, damaged) it loses
/// media. The edits themselves do not ask; whoever makes them should.
///
/// A reason is a part of an English sentence for a person: "a 64-bit chunk offset table would not
/// be corrected". Where there is nothing to edit, there is none. Reads headers and tables, never
/// media. One thread at a time.
class KX_EXPORT KXMP4EditSafety {
public:
    /// `initWithAbstractData:` Parses the atoms of the whole file that `data` reads. `data` must
    /// live as long as this object and the file must stay as it is.
    explicit KXMP4EditSafety(KXAbstractData& data);

    /// `reasonAgainstEditAt:difference:` Why media would be lost by removing the atom at
    /// `position`, of `-difference` bytes, or by inserting `difference` bytes in front of it;
    /// absent when all stay right.
    [[nodiscard]] std::optional<std::string> reasonAgainstEditAt(
        std::uint64_t position, std::int64_t difference) const;

    /// `reasonAgainstRemovingAlbumCover` The same for what `removeAlbumCoverFromData:` of
    /// `KXMDFileMetaMP4` does.
    [[nodiscard]] std::optional<std::string> reasonAgainstRemovingAlbumCover() const;

    /// `reasonAgainstAddingAlbumCoverOfSize:` The same for `addAlbumCover:toData:`, which removes
    /// the covers that are there. `atomSize` in bytes, as `albumCoverSizeForImage:` tells it.
    [[nodiscard]] std::optional<std::string> reasonAgainstAddingAlbumCoverOfSize(
        std::uint64_t atomSize) const;

    /// `reasonAgainstCleaning` The same for the removals of `KXMDFileProcessorCleanIPhoneVideo`,
    /// also where one of them cannot be made.
    [[nodiscard]] std::optional<std::string> reasonAgainstCleaning() const;

private:
    [[nodiscard]] std::optional<std::string> reasonAgainst(KXMP4EditPlan plan) const;

    [[nodiscard]] bool addRemovalOfAlbumCovers(KXMP4EditPlan& plan) const;

    KXAbstractData& _data;
    bool _isMP4;
    KXMP4Atom::Ref _root;
    bool _isWhole; // Whether the parse stayed within its budget.
};
