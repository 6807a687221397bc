#include "kxmd/platform/KXPlatform.h"
#include "kxmd/platform/linux/KXGLibTemporaryFoldersPrivate.h"
#include "kxmd/platform/linux/KXGLibTextDigestPrivate.h"
#include "kxmd/platform/linux/KXPixbufPictureLoaderPrivate.h"

KXPlatform::Ref KXPlatform::platformOfThisMachine()
{
    return std::make_shared<KXPlatform const>(KXPlatform {
        .pictureLoader = std::make_shared<KXPixbufPictureLoader const>(),
        .textDigest = std::make_shared<KXGLibTextDigest const>(),
        .temporaryFolders = std::make_shared<KXGLibTemporaryFolders const>(),
    });
}
