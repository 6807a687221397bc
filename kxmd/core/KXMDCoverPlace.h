#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXMutableData.h"

#include <optional>
#include <string>

/// Makes the place for a cover in music that has none, so that `addEncodedAlbumCover:toData:` of
/// `KXMDFileMeta` then works.
///
/// In an MP3 file without an ID3v2 tag that is a tag of version 2.3 at its beginning, with a frame
/// that names the kind of audio, and with what an ID3v1 tag at the end says: that one stays where
/// it is, but readers overlook it then. None is made beside an APE tag. In an MP4 file of music it
/// is a tag list of iTunes in the movie's user data, with one tag that says what its absence says
/// as well: that the song is not a part of gapless music. What there is of the way to that list is
/// kept.
class KX_EXPORT KXMDCoverPlace {
public:
    KXMDCoverPlace() = delete;

    /// `canMakeInData:` Whether `data` reads such music, and a place can be made in it.
    [[nodiscard]] static bool canMakeInData(KXAbstractData& data);

    /// `makeInData:` Makes the place in the whole file in `data`. False, with nothing changed, when
    /// it cannot be made, or is there already.
    static bool makeInData(KXMutableData::Ref const& data);

    /// `reasonAgainstMakingInData:` Why media of the file that `data` reads would be lost by that,
    /// as `KXMP4EditSafety` tells it; absent when none is, or when no place can be made. An MP3
    /// file keeps no places of its media, so there is none against that.
    [[nodiscard]] static std::optional<std::string> reasonAgainstMakingInData(KXAbstractData& data);
};
