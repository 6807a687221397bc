#include "kxmd/mp4/KXMP4CameraData.h"
#include "kxmd/mp4/KXMP4CameraDataAtomsPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"

std::optional<std::string> KXMP4CameraData::reasonAgainstRemovingFromData(KXAbstractData& data)
{
    if (!cameraDataAtoms(*KXMP4Atom::atomWithAbstractData(data), data))
        return "the file has too much metadata";
    return KXMP4EditSafety(data).reasonAgainstEdit(&removeFromData);
}
