#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXMutableData.h"

#include <cstdint>
#include <optional>
#include <string>

/// What cameras and phones write about their owner into a recording: the place, the maker, the
/// model, the software, the time. It stands in the user data and the metadata of the movie and of
/// its tracks, and in XMP and what some makers put in its stead.
///
/// The same places hold what describes films and songs, so this is for recordings only, as
/// `KXMP4MovieKind` tells them. Not looked at: the times in the headers of movie and tracks, tracks
/// of measurements such as those of action cameras, and the media itself.
class KX_EXPORT KXMP4CameraData {
public:
    KXMP4CameraData() = delete;

    /// `removeFromData:` Removes it from the whole file in `data` and corrects the offsets of the
    /// media. False when not all of it could be removed.
    static bool removeFromData(KXMutableData::Ref const& data);

    /// `bytesInData:` How many bytes shorter that makes the file that `data` reads; 0 when there
    /// is nothing to remove.
    [[nodiscard]] static std::uint64_t bytesInData(KXAbstractData& data);

    /// `reasonAgainstRemovingFromData:` Why media of the file that `data` reads would be lost by
    /// that, as `KXMP4EditSafety` tells it, or why nobody can tell what there is to remove; absent
    /// when none is, or when there is nothing to remove.
    [[nodiscard]] static std::optional<std::string> reasonAgainstRemovingFromData(
        KXAbstractData& data);
};
