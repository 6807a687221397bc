#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/mp3/KXMDFileMetaMP3Frame.h"

#include <cstdint>
#include <optional>

/// The picture within a picture frame, found by the standards: the frame's flags, the text encoding
/// and the description in that encoding say where it begins (ID3v2.2.0, 4.15; ID3v2.3.0, 3.3.1 and
/// 4.15; ID3v2.4.0 structure, 4.1, and frames, 4.14).
///
/// The frame itself measures its picture by a simpler rule, which misses some.
class KXMP3Picture {
public:
    /// The picture of `frame`, which `data` reads. Absent when the frame is not a picture frame,
    /// does not hold a picture, only names one, or is compressed or encrypted.
    static std::optional<KXMP3Picture> pictureOfFrame(
        KXMDFileMetaMP3Frame const& frame, KXAbstractData& data);

    bool isFrontCover() const { return _type == frontCover; }

    /// A reader that stands where the picture begins and ends where it ends.
    KXAbstractData::Ref const& data() const { return _data; }

private:
    static constexpr std::uint8_t frontCover = 3;

    KXMP3Picture() = default;

    bool readFields(bool hasShortFormat);

    std::uint8_t _type { 0 };
    KXAbstractData::Ref _data;
};
