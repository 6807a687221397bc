#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/platform/KXMediaProbe.h"

#include <memory>
#include <optional>

/// An opened movie or piece of music. One thread at a time.
class KX_EXPORT KXMovie {
public:
    virtual ~KXMovie();

    /// `duration` In seconds; 0 when the file does not tell.
    [[nodiscard]] virtual double duration() const = 0;

    /// `imageAtTime:maximumSize:` The frame that is shown at `seconds` from the start, upright,
    /// with its own proportions.
    ///
    /// No larger than `maximumSize` in points and never enlarged; an empty `maximumSize` asks for
    /// all of it. Null when there is no frame at that time, or none that can be decoded.
    [[nodiscard]] virtual KXImage::Ref imageAtTime(double seconds, KXSize maximumSize) = 0;

    /// `keyImageAtTime:maximumSize:` The same for the last frame up to `seconds` that can be
    /// decoded by itself: much cheaper, and up to some seconds too early.
    [[nodiscard]] virtual KXImage::Ref keyImageAtTime(double seconds, KXSize maximumSize) = 0;

    /// `attachedPicture` The picture file that is attached as cover; empty when there is none.
    [[nodiscard]] virtual KXData attachedPicture() const = 0;
};

/// What a movie library does for us. Safe to call from several threads.
class KX_EXPORT KXMovieLoader {
public:
    virtual ~KXMovieLoader();

    /// `movieWithData:` Opens the movie that `data` holds, from its start, reading what is needed.
    ///
    /// `data` must outlive the movie, which reads it. Null when it is not a movie that the library
    /// knows, or one that cannot be played from these bytes.
    [[nodiscard]] virtual std::unique_ptr<KXMovie> movieWithData(KXAbstractData& data) const = 0;

    /// `mediaProbeWithData:` What the file is that `data` holds, from its start.
    ///
    /// Absent when the library does not know it; also for a loader that can only open movies, as
    /// one that does not override this.
    [[nodiscard]] virtual std::optional<KXMediaProbe> mediaProbeWithData(
        KXAbstractData& data) const;
};
