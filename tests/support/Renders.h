#pragma once

#include "kxmd/platform/KXPlatform.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"

#include <linux/landlock.h>
#include <memory>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

/// This machine's own picture loader, with what it can do beyond other platforms.
inline std::shared_ptr<KXRenderPictureLoader const> rendersOfThisMachine()
{
    return std::dynamic_pointer_cast<KXRenderPictureLoader const>(
        KXPlatform::platformOfThisMachine()->pictureLoader);
}

/// A server that is asked for every picture.
inline KXRenderPictureLoader::Servers oneForAll(std::shared_ptr<KXRenderServer const> server)
{
    return { server, server, std::move(server) };
}

/// Whether the kernel can keep programs from files (Landlock).
inline bool isConfinementThere()
{
    return ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) >= 1;
}
