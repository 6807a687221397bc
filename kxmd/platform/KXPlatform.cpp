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
    if (auto platform = sharedPlatform().load())
        return platform;
    // Under no lock, since the module with it is opened and log lines may be written.
    auto own = platformOfThisMachine();
    auto platform = sharedPlatform().lock();
    if (!*platform)
        platform->swap(own); // Another thread may have been faster.
    return *platform;
}

void KXPlatform::setShared(Ref platform) { sharedPlatform().store(std::move(platform)); }
