#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// A sound sample entry, in the forms of ISO/IEC 14496-12, 12.2.3, and of QuickTime's sound sample
/// description, versions 0 to 2.
class KX_EXPORT KXMP4AtomSoundSD final : public KXMP4Atom {
public:
    /// `audioChannels` The channel count; 0 when the entry is too small or of an unknown version.
    [[nodiscard]] std::uint32_t audioChannels() const { return _audioChannels; }
    /// `setAudioChannels:` Sets the channel count.
    void setAudioChannels(std::uint32_t audioChannels) { _audioChannels = audioChannels; }

    [[nodiscard]] std::string description() const override;
    void parseAtomSpecificData(KXAbstractData& data) override;
    [[nodiscard]] std::optional<KXMDCodecInfo> codecInfo() override;

private:
    std::uint32_t _audioChannels { 0 };
};
