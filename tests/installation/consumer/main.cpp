// An application that uses an installed copy of the library.

#include <kxmd/kxmd.h>

#include <iostream>
#include <string_view>

namespace {

bool check(bool isTrue, char const* what)
{
    if (!isTrue)
        std::cerr << "Not so: " << what << '\n';
    return isTrue;
}

}

int main()
{
    KXData const bytes({ 0, 0, 0, 8, 'f', 't', 'y', 'p', 0, 0, 0, 8, 'm', 'o', 'o', 'v' });
    auto const reader = KXAbstractData::abstractDataWithData(bytes);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader);
    bool const isGood = check(meta && meta->metaType() == KXMDMetaTypeMP4, "an MP4 file is one")
        && check(meta->mp4Atom()->children().size() == 2, "it has two atoms")
        && check(KXMDThumbnailController::sharedController()->cacheNameForPath("a", { 1, 2 })
                == "a3bc98071341c83cea3c89c51829af88c46a4a16",
            "the platform's digest is there")
        && check(KXVersionNumber() == KXMD_VERSION_NUMBER
                && KXVersion() == std::string_view(KXMD_VERSION),
            "headers and library are of one version");
    return isGood ? 0 : 1;
}
