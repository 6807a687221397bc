#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"

#include <optional>

/// What kind of work an MP4 or QuickTime file holds: a song, a film, or what somebody recorded with
/// a phone. By its atoms alone, those after media with a 64-bit size included.
struct KX_EXPORT KXMP4MovieKind {
    /// A video track that is neither a still picture beside sound nor the pictures of chapters.
    bool hasMovingPictures { false };
    /// Sound without moving pictures, or with them in a file that calls itself audio by its brand,
    /// as songs with an animated cover do.
    bool isMusic { false };
    /// A track whose samples are encrypted (ISO/IEC 14496-12, 8.12, and schemes before that).
    bool isProtected { false };
    /// A tag that cameras do not write by themselves: a title, who made it, an album, a show, an
    /// episode, a genre, a description; or chapters.
    bool isDescribed { false };
    /// A track of timed metadata (ISO/IEC 14496-12, 12.3), such as the places that an action camera
    /// measures.
    bool hasMeasurements { false };

    /// `isRecording` Whether somebody recorded it: moving pictures, no music, and nobody has said
    /// what it is.
    [[nodiscard]] bool isRecording() const { return hasMovingPictures && !isMusic && !isDescribed; }

    /// `kindOfData:` The kind of the file that `data` reads. Absent when that is neither MP4 nor
    /// QuickTime, such as a picture in the same container. Leaves the reader at position 0.
    ///
    /// QuickTime files without a file type atom are known by their movie atom.
    [[nodiscard]] static std::optional<KXMP4MovieKind> kindOfData(KXAbstractData& data);
};
