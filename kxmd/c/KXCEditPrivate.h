#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXMutableData.h"
#include "kxmd/core/KXMDFileMeta.h"

#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

class SourceFile;

/// An edit of a file, and what speaks against it.
struct KXCEdit {
    KXAbstractData::Ref reader; ///< Over the file.
    std::function<bool(KXMutableData::Ref const& data)> edit;
    std::function<std::optional<std::string>()> reason; ///< Absent when the file survives it.
    char const* refusal; ///< Why the edit cannot be made, where it cannot.
    bool makesPlace { false }; ///< For a cover.

    /// Fails when the file would not survive it.
    void check() const;
    /// The edited file.
    KXMutableData::Ref made() const;
    /// Makes it in a buffer that other edits may have been made in.
    void makeIn(KXMutableData::Ref const& data) const;
};

/// The insertion of a JPEG file as the only cover of the file that `reader` reads, as music of the
/// kind that `meta` is; makes a place for it as well if it may.
KXCEdit KXCInsertionOf(KXData const& jpeg, KXAbstractData::Ref const& reader,
    KXMDFileMeta::Ref const& meta, bool makesPlace);

/// The `length` bytes at `picture` as a JPEG file; fails when they are no picture.
KXData KXCAsJPEG(void const* picture, std::size_t length);

/// Fails when not all could be read that was asked of `reader`.
void KXCRequireWholeRead(KXAbstractData const& reader);

/// A file that is written.
struct KXCTarget {
    std::string path;
    mode_t permissions { 0666 }; ///< As far as the user's mask lets it, unless it replaces a file.
    std::optional<std::timespec> modificationTime {}; ///< That of writing it if absent.
};

/// Writes the edited file in `data`, as a whole or not at all. `base` is the file that it was made
/// from; null for one in memory.
void KXCWriteEdited(KXMutableData const& data, SourceFile const* base, KXCTarget const& target);
