#include "kxmd/mp4/atoms/KXMP4AtomHdlr.h"

#include "kxmd/base/KXLog.h"

KXMP4TrackType KXMP4AtomHdlr::trackTypeOfHandler() const
{
    if (_mediaHandlerType == "vide")
        return KXMP4TrackTypeVideo;
    if (_mediaHandlerType == "soun")
        return KXMP4TrackTypeSound;
    return KXMP4TrackTypeNone;
}

std::string KXMP4AtomHdlr::description() const
{
    return KXMP4Atom::description()
        + " : Media Handler Type:" + _mediaHandlerType.value_or("(null)");
}

void KXMP4AtomHdlr::parseAtomSpecificData(KXAbstractData& data)
{
    constexpr std::uint64_t smallestSize = 20;
    if (size() < smallestSize) {
        KXLog("Metadata", "KXMP4AtomHdlr->data too small");
        return;
    }
    if (data.readUInt8OrZero() != 0) // Version.
        return;
    data.skipBytes(3); // Flags.
    data.skipBytes(4); // Pre-defined; QuickTime's component type.
    std::optional<std::string> type;
    if (data.readStringTo(type, 4, KXStringEncodingLatin1))
        _mediaHandlerType = std::move(type);
}
