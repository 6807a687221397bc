// An application that uses an installed copy of the library.

#include <kxmd/kxmd.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

namespace {

bool check(bool isTrue, char const* what)
{
    if (!isTrue)
        std::cerr << "Not so: " << what << '\n';
    return isTrue;
}

/// Whether this process has loaded the libraries of the desktop.
bool hasLoadedDesktop()
{
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("libglib-2.0") != line.npos)
            return true;
    }
    return false;
}

bool usesItsOwnPlatform()
{
    auto const own = std::make_shared<KXPlatform const>();
    KXPlatform::setShared(own);
    bool const isUsed = KXPlatform::shared() == own;
    bool const hasLoaded = hasLoadedDesktop();
    KXPlatform::setShared(nullptr);
    return isUsed && !hasLoaded;
}

}

int main()
{
    KXData const bytes({ 0, 0, 0, 8, 'f', 't', 'y', 'p', 0, 0, 0, 8, 'm', 'o', 'o', 'v' });
    auto const reader = KXAbstractData::abstractDataWithData(bytes);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader);
    bool const isGood = check(meta && meta->metaType() == KXMDMetaTypeMP4, "an MP4 file is one")
        && check(meta->mp4Atom()->children().size() == 2, "it has two atoms")
        && check(!hasLoadedDesktop(), "reading loads nothing of the desktop")
        && check(usesItsOwnPlatform(), "nor does a host with a platform of its own")
        && check(KXMDThumbnailController::sharedController()->cacheNameForPath("a", { 1, 2 })
                == "a3bc98071341c83cea3c89c51829af88c46a4a16",
            "the platform's digest is there")
        && check(hasLoadedDesktop(), "this machine's services are loaded with it")
        && check(KXVersionNumber() == KXMD_VERSION_NUMBER
                && KXVersion() == std::string_view(KXMD_VERSION),
            "headers and library are of one version");
    return isGood ? 0 : 1;
}
