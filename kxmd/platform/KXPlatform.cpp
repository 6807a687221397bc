#include "kxmd/platform/KXPlatform.h"

#include "kxmd/base/KXGuarded.h"

#include <utility>

namespace {

KXGuarded<KXPlatform::Ref>& sharedPlatform()
{
    // Never destroyed: queues may still work while the process exits.
    static auto& platform = *new KXGuarded<KXPlatform::Ref>();
    return platform;
}

}

KXPlatform::Ref KXPlatform::shared()
{
    auto platform = sharedPlatform().lock();
    if (!*platform)
        *platform = platformOfThisMachine();
    return *platform;
}

void KXPlatform::setShared(Ref platform) { sharedPlatform().store(std::move(platform)); }
