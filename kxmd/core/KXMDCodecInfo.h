#pragma once

#include "kxmd/base/KXByteLock.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXGuarded.h"
#include "kxmd/base/KXSize.h"

#include <cstdint>
#include <string>
#include <vector>

/// Codecs, by the numbers that hosts keep for them.
enum KXMDCodec : std::int32_t {
    KXMDCodecNone = 0, ///< Not known, or not told by the file.
    KXMDCodecMP3 = 1, ///< ISO/IEC 11172-3 and 13818-3, layer III.
    KXMDCodecAMR = 2, ///< 3GPP TS 26.071.
    KXMDCodecAMRWB = 3, ///< 3GPP TS 26.171.
    KXMDCodecALAC = 4, ///< Apple Lossless.
    KXMDCodecAAC = 5, ///< ISO/IEC 14496-3.
    KXMDCodecMP4Visual = 6, ///< ISO/IEC 14496-2.
    KXMDCodecAVC = 7, ///< ISO/IEC 14496-10, also known as H.264.
    KXMDCodecH263 = 8, ///< ITU-T H.263.
};

/// The profile of a record whose profile was never set.
constexpr std::int32_t KXMDProfileUnknown = 65535;

/// Describes one audio or video stream of a file. A plain value: each copy has one user at a time,
/// but for the picture size, which is read and replaced as one unit.
class KX_EXPORT KXMDCodecInfo {
public:
    /// Records of one file, in file order.
    using List = std::vector<KXMDCodecInfo>;

    /// `codec` The codec; any other number stands for an unknown one.
    [[nodiscard]] KXMDCodec codec() const { return _codec; }
    /// `setCodec:` Sets the codec.
    void setCodec(KXMDCodec codec) { _codec = codec; }

    /// `profile` The codec's own profile number: the audio object type of ISO/IEC 14496-3, the high
    /// half of the profile and level indication of ISO/IEC 14496-2, profile_idc of ISO/IEC 14496-10
    /// or the profile of H.263.
    [[nodiscard]] std::int32_t profile() const { return _profile; }
    /// `setProfile:` Sets the codec's own profile number.
    void setProfile(std::int32_t profile) { _profile = profile; }

    /// `profileLevel` The codec's own level number; 30 is level 3.0 of AVC.
    [[nodiscard]] std::int32_t profileLevel() const { return _profileLevel; }
    /// `setProfileLevel:` Sets the codec's own level number.
    void setProfileLevel(std::int32_t profileLevel) { _profileLevel = profileLevel; }

    /// `bitRate` The highest bit rate that the stream declares, in bits per second; 0 when it does
    /// not.
    [[nodiscard]] double bitRate() const { return _bitRate; }
    /// `setBitRate:` Sets the highest bit rate, in bits per second.
    void setBitRate(double bitRate) { _bitRate = bitRate; }

    /// `videoSize` The picture size in pixels; 0 by 0 for audio.
    [[nodiscard]] KXSize videoSize() const { return _videoSize.load(); }
    /// `setVideoSize:` Sets the picture size in pixels.
    void setVideoSize(KXSize videoSize) { _videoSize.store(videoSize); }

    /// `videoFrameRate` Frames per second. The library never sets it.
    [[nodiscard]] double videoFrameRate() const { return _videoFrameRate; }
    /// `setVideoFrameRate:` Sets the frames per second.
    void setVideoFrameRate(double videoFrameRate) { _videoFrameRate = videoFrameRate; }

    /// `audioChannels` The channel count; 0 for video.
    [[nodiscard]] std::int32_t audioChannels() const { return _audioChannels; }
    /// `setAudioChannels:` Sets the channel count.
    void setAudioChannels(std::int32_t audioChannels) { _audioChannels = audioChannels; }

    /// `description` The codec's name, its profile's name and the level in one line of text.
    [[nodiscard]] std::string description() const;

    /// `nameOfProfile:ofCodec:` A profile's name; "None" for codecs without profiles.
    [[nodiscard]] static std::string nameOfProfileOfCodec(std::int32_t profile, KXMDCodec codec);

private:
    KXMDCodec _codec { KXMDCodecNone };
    std::int32_t _profile { KXMDProfileUnknown };
    std::int32_t _profileLevel { 0 };
    double _bitRate { 0 };
    KXGuarded<KXSize, KXByteLock> _videoSize;
    double _videoFrameRate { 0 };
    std::int32_t _audioChannels { 0 };
};
