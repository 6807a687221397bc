#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// A decoder configuration inside a sample entry. All numbers are 0 until they are read.
class KX_EXPORT KXMP4AtomSDExt : public KXMP4Atom {
public:
    /// `profile` The codec's own profile number.
    [[nodiscard]] std::int32_t profile() const { return _profile; }
    /// `setProfile:` Sets the profile number.
    void setProfile(std::int32_t profile) { _profile = profile; }

    /// `level` The codec's own level number.
    [[nodiscard]] std::int32_t level() const { return _level; }
    /// `setLevel:` Sets the level number.
    void setLevel(std::int32_t level) { _level = level; }

    /// `maxBitrate` The highest bit rate, in bits per second.
    [[nodiscard]] std::int32_t maxBitrate() const { return _maxBitrate; }
    /// `setMaxBitrate:` Sets the highest bit rate.
    void setMaxBitrate(std::int32_t maxBitrate) { _maxBitrate = maxBitrate; }

    /// `avgBitrate` The average bit rate, in bits per second.
    [[nodiscard]] std::int32_t avgBitrate() const { return _avgBitrate; }
    /// `setAvgBitrate:` Sets the average bit rate.
    void setAvgBitrate(std::int32_t avgBitrate) { _avgBitrate = avgBitrate; }

    /// `audioChannels` Of audio: the low four bits of the audio object type. The channel count is
    /// the sample entry's.
    [[nodiscard]] std::int32_t audioChannels() const { return _audioChannels; }
    /// `setAudioChannels:` Sets that number.
    void setAudioChannels(std::int32_t audioChannels) { _audioChannels = audioChannels; }

protected:
    /// For classes derived from it.
    KXMP4AtomSDExt() = default;

    /// The base description with the codec's name of the profile after it.
    [[nodiscard]] std::string descriptionWithProfileOfCodec(KXMDCodec codec) const;

private:
    std::int32_t _profile { 0 };
    std::int32_t _level { 0 };
    std::int32_t _maxBitrate { 0 };
    std::int32_t _avgBitrate { 0 };
    std::int32_t _audioChannels { 0 };
};
