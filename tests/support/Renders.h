#pragma once

#include "kxmd/platform/KXPlatform.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"

#include <memory>

/// This machine's own picture loader, with what it can do beyond other platforms.
inline std::shared_ptr<KXRenderPictureLoader const> rendersOfThisMachine()
{
    return std::dynamic_pointer_cast<KXRenderPictureLoader const>(
        KXPlatform::platformOfThisMachine()->pictureLoader);
}
