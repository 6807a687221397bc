#include "kxmd/mp4/atoms/KXMP4AtomSoundSD.h"

#include "kxmd/mp4/atoms/KXMP4AtomSDExt.h"
#include "kxmd/mp4/atoms/KXMP4AtomTypesPrivate.h"

#include <tuple>

std::string KXMP4AtomSoundSD::description() const
{
    return KXMP4Atom::description()
        + " : Sound SD, channels:" + std::to_string(static_cast<std::int32_t>(_audioChannels));
}

void KXMP4AtomSoundSD::parseAtomSpecificData(KXAbstractData& data)
{
    constexpr std::uint64_t smallestSize = 28;
    if (size() < smallestSize) {
        data.setOffset(end());
        return;
    }
    data.skipBytes(8); // Reserved, data reference index.
    std::uint16_t const version = data.readUInt16OrZero(KXSwap::yes);
    if (version > 2) {
        data.setOffset(end());
        return;
    }
    // Read and not skipped: at the end of the data the fields that follow then move up.
    std::ignore = data.readUInt16OrZero(KXSwap::yes); // Revision level.
    std::ignore = data.readUInt32OrZero(KXSwap::yes); // Vendor.
    if (version == 2) {
        // Fixed fields, size of the structure, sample rate as a 64-bit float.
        data.skipBytes(24);
        _audioChannels = data.readUInt32OrZero(KXSwap::yes);
        // A fixed field, bits per channel, format flags, bytes per packet, frames per packet.
        data.skipBytes(20);
        return;
    }
    _audioChannels = data.readUInt16OrZero(KXSwap::yes);
    data.skipBytes(10); // Sample size, compression identifier, packet size, sample rate.
    if (version == 1)
        data.skipBytes(16); // Samples per packet; bytes per packet, frame and sample.
}

std::optional<KXMDCodecInfo> KXMP4AtomSoundSD::codecInfo()
{
    KXMDCodecInfo info;
    std::string const type = tag();
    if (type.empty())
        return info;
    if (soundTypesAAC.contains(type)) {
        info.setCodec(KXMDCodecAAC);
        info.setAudioChannels(static_cast<std::int32_t>(_audioChannels));
        Ref configuration = lastAtomBelow("esds");
        if (!configuration)
            configuration = lastAtomBelow("wave/esds"); // QuickTime's place.
        if (auto const extension = std::dynamic_pointer_cast<KXMP4AtomSDExt>(configuration)) {
            info.setProfile(extension->profile());
            info.setBitRate(extension->maxBitrate());
        }
    } else if (soundTypesALAC.contains(type)) {
        info.setCodec(KXMDCodecALAC);
    } else if (soundTypesAMR.contains(type)) {
        info.setCodec(KXMDCodecAMR);
    } else if (soundTypesAMRWB.contains(type)) {
        info.setCodec(KXMDCodecAMRWB);
    }
    return info;
}
