#include "kxmd/mp4/atoms/KXMP4AtomSDExt.h"

std::string KXMP4AtomSDExt::descriptionWithProfileOfCodec(KXMDCodec codec) const
{
    return KXMP4Atom::description()
        + " : Profile:" + KXMDCodecInfo::nameOfProfileOfCodec(_profile, codec);
}
