#include "kxmd/mp4/KXMP4AtomSDExt.h"

std::string KXMP4AtomSDExt::descriptionWithProfileOfCodec(std::int32_t codec) const
{
    return KXMP4Atom::description()
        + " : Profile:" + KXMDCodecInfo::nameOfProfileOfCodec(_profile, codec);
}
