#include "kxmd/platform/KXMediaProbe.h"

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXSerialQueue.h"
#include "kxmd/platform/KXPlatform.h"

#include <utility>

namespace {

/// Absent also when that throws, for want of memory or from the host's own loader: on the queue's
/// thread nobody would catch it, and the handler waits.
std::optional<KXMediaProbe> anyProbe(std::string const& path, KXPlatform::Ref const& platform)
{
    try {
        return KXMediaProbe::probeWithSourcePath(path, platform);
    } catch (...) {
        KXLog("Metadata", "KXMediaProbe->a file could not be looked into");
        return std::nullopt;
    }
}

KXSerialQueue& probeQueue()
{
    // Never destroyed: it may still work while the process exits.
    static auto& queue = *new KXSerialQueue("org.kxmd.mediaprobe");
    return queue;
}

}

std::optional<KXMediaProbe> KXMediaProbe::probeWithSourcePath(
    std::string const& path, KXPlatform::Ref platform)
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data)
        return std::nullopt;
    if (!platform)
        platform = KXPlatform::shared();
    return platform->movieLoader->mediaProbeWithData(*data);
}

void KXMediaProbe::probeWithSourcePath(std::string path, KXPlatform::Ref platform, Handler handler)
{
    if (!platform)
        platform = KXPlatform::shared();
    probeQueue().async([path = std::move(path), platform = std::move(platform),
                           handler = std::move(handler)]() mutable {
        auto answer = [handler = std::move(handler), probe = anyProbe(path, platform)]() mutable {
            if (handler)
                handler(std::move(probe));
        };
        platform->mainQueue->async(std::move(answer));
    });
}
