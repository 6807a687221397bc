#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// Tells beforehand whether an edit of an MP4 or QuickTime file leaves its media where the file
/// says they are.
///
/// The edits of `KXMP4Atom` correct 32-bit sizes and chunk offset tables, by simple rules. That is
/// right for most files; in others (with 64-bit tables, in fragments, over 4 GiB, damaged) it loses
/// media. The edits themselves do not ask; whoever makes them should.
///
/// To tell, the edit is made in a buffer that reads from the file what it needs, and the file
/// before and after it are compared by the standards. Reads headers and tables, never media.
///
/// A reason is a part of an English sentence for a person: "a 64-bit chunk offset table would not
/// be corrected". Where there is nothing to edit, there is none. One thread at a time.
class KX_EXPORT KXMP4EditSafety {
public:
    /// Edits the whole file in `data`; false when that could not be done, or not all of it.
    using Edit = std::function<bool(KXMutableData::Ref const& data)>;

    /// `initWithAbstractData:` Parses the atoms of the whole file that `data` reads. `data` must
    /// live as long as this object and the file must stay as it is.
    explicit KXMP4EditSafety(KXAbstractData& data);

    /// `reasonAgainstEdit:` Why `edit` would lose media of the file, or why it cannot be completed;
    /// absent when it does no harm.
    [[nodiscard]] std::optional<std::string> reasonAgainstEdit(Edit const& edit) const;

    /// `reasonAgainstEditAt:difference:` The same for the removal of the atom at `position`, of
    /// `-difference` bytes, or the insertion of `difference` bytes before it.
    [[nodiscard]] std::optional<std::string> reasonAgainstEditAt(
        std::uint64_t position, std::int64_t difference) const;

    /// `reasonAgainstRemovingAlbumCover` The same for what `removeAlbumCoverFromData:` of
    /// `KXMDFileMetaMP4` does.
    [[nodiscard]] std::optional<std::string> reasonAgainstRemovingAlbumCover() const;

    /// `reasonAgainstAddingAlbumCoverOfSize:` The same for `addAlbumCover:toData:`, which removes
    /// the covers that are there. `atomSize` in bytes, as `albumCoverSizeForImage:` tells it.
    [[nodiscard]] std::optional<std::string> reasonAgainstAddingAlbumCoverOfSize(
        std::uint64_t atomSize) const;

private:
    [[nodiscard]] bool areCoversEdited() const;

    KXAbstractData& _data;
    bool const _isMP4;
    KXMP4Atom::Ref const _root;
    bool const _isWhole; // Whether the parse stayed within its budget.
};
