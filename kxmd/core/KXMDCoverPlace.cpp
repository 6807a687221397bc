#include "kxmd/core/KXMDCoverPlace.h"

#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp3/KXMP3CoverPlacePrivate.h"
#include "kxmd/mp4/KXMP4CoverPlacePrivate.h"
#include "kxmd/mp4/KXMP4MovieKind.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"

namespace {

bool isMP4Music(KXAbstractData& data)
{
    auto const kind = KXMP4MovieKind::kindOfData(data);
    return kind && kind->isMusic;
}

/// Whether a cover can be added to the edited file.
bool hasPlace(KXMutableData::Ref const& data)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader);
    if (!meta || !meta->canInsertAlbumCover())
        return false;
    auto const root = meta->mp4Atom();
    return !root || hasPlaceForMP4Cover(*root);
}

/// Makes the place where a try beforehand showed that there will be one.
bool makeUntested(KXMutableData::Ref const& data)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    if (isBareMP3(*reader))
        return data->insertBytesAt(tagForMP3Cover(*reader).bytes(), 0);
    return isMP4Music(*reader) && makePlaceForMP4Cover(data);
}

}

bool KXMDCoverPlace::canMakeInData(KXAbstractData& data)
{
    KXAbstractData::Ref const unowned(KXAbstractData::Ref(), &data);
    auto const edited = std::make_shared<KXMutableData>(unowned); // Reads what it needs.
    bool const canMake = makeUntested(edited) && hasPlace(edited);
    data.setOffset(0);
    return canMake;
}

bool KXMDCoverPlace::makeInData(KXMutableData::Ref const& data)
{
    return data && canMakeInData(*KXMutableAbstractData::abstractDataWithData(data))
        && makeUntested(data);
}

std::optional<std::string> KXMDCoverPlace::reasonAgainstMakingInData(KXAbstractData& data)
{
    if (!canMakeInData(data) || !isMP4Music(data))
        return std::nullopt;
    return KXMP4EditSafety(data).reasonAgainstEdit(&makeUntested);
}
