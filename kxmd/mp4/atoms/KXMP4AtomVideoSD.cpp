#include "kxmd/mp4/atoms/KXMP4AtomVideoSD.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXWholePartPrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomSDExt.h"
#include "kxmd/mp4/atoms/KXMP4AtomTypesPrivate.h"

namespace {

struct VideoCodec {
    KXCodeList const& types;
    KXMDCodec codec;
    std::string_view configurationTag;
    bool declaresBitRate;
};

constexpr VideoCodec videoCodecs[] {
    { videoTypesMP4Visual, KXMDCodecMP4Visual, "esds", true },
    { videoTypesAVC, KXMDCodecAVC, "avcC", false },
    { videoTypesH263, KXMDCodecH263, "d263", false },
};

}

std::string KXMP4AtomVideoSD::description() const
{
    return KXMP4Atom::description() + " : Video SD: " + std::to_string(wholePart(_width)) + " x "
        + std::to_string(wholePart(_height));
}

void KXMP4AtomVideoSD::parseAtomSpecificData(KXAbstractData& data)
{
    constexpr std::uint64_t smallestSize = 78;
    constexpr std::uint64_t compressorNameLength = 32;
    if (size() < smallestSize) {
        KXLog("Metadata", "KXMP4AtomVideoSD->Atom size too small, exiting");
        return;
    }
    data.skipBytes(8); // Reserved, data reference index.
    std::uint16_t const version = data.readUInt16OrZero(KXSwap::yes);
    if (version > 1) {
        KXLog("Metadata", "KXMP4AtomVideoSD->unknown video version, exiting:%i", version);
        return;
    }
    data.skipBytes(14); // Revision level, vendor, temporal and spatial quality.
    std::uint16_t const width = data.readUInt16OrZero(KXSwap::yes);
    std::uint16_t const height = data.readUInt16OrZero(KXSwap::yes);
    data.skipBytes(14); // Horizontal and vertical resolution, data size, frame count.
    std::optional<std::string> compressorName;
    if (data.readStringTo(compressorName, compressorNameLength, KXStringEncodingLatin1))
        _codecName = std::move(compressorName);
    data.skipBytes(4); // Depth, colour table identifier.
    if (width && height) {
        _width = width;
        _height = height;
    }
}

std::optional<KXMDCodecInfo> KXMP4AtomVideoSD::codecInfo()
{
    KXMDCodecInfo info;
    std::string const type = tag();
    if (type.empty())
        return info;
    for (auto const& [types, codec, configurationTag, declaresBitRate] : videoCodecs) {
        if (!types.contains(type))
            continue;
        info.setCodec(codec);
        info.setVideoSize({ _width, _height });
        auto const extension
            = std::dynamic_pointer_cast<KXMP4AtomSDExt>(lastAtomBelow(configurationTag));
        if (extension) {
            info.setProfile(extension->profile());
            info.setProfileLevel(extension->level());
            if (declaresBitRate)
                info.setBitRate(extension->maxBitrate());
        }
        break;
    }
    return info;
}
