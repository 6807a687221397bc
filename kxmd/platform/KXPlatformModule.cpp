#include "kxmd/platform/KXPlatformModulePrivate.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/platform/KXAbsentPlatformPrivate.h"
#include "kxmd/platform/KXLibraryFolderPrivate.h"
#include "kxmd/version.h"

#include <atomic>
#include <dlfcn.h>
#include <string>
#include <string_view>

namespace {

struct Opening {
    KXPlatformModule const* module { nullptr };
    std::string problem {};
};

Opening openModule()
{
    std::string const path = pathBesideLibrary(KXMD_PLATFORM_MODULE);
    if (path.empty())
        return { .problem = "nobody knows where the library is" };
    // Never closed: its threads and what GLib registered may outlive whoever asked for it.
    void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!library)
        return { .problem = ::dlerror() };
    auto const* const module
        = static_cast<KXPlatformModule const*>(::dlsym(library, "KXPlatformModuleOfThisMachine"));
    if (!module)
        return { .problem = path + ": is no module of this library" };
    if (module->version != std::string_view(KXMD_VERSION))
        return { .problem = path + ": is of version " + module->version };
    return { .module = module };
}

std::atomic<KXPlatformModule const*> opened { nullptr };
std::atomic<bool> isProblemReported { false };

/// Null when it cannot be opened. Tried again each time, since the process may just have too many
/// files open, but said once. Under no lock, since others' code runs meanwhile; the loader has its
/// own, and knows what is open.
KXPlatformModule const* openedModule()
{
    if (auto const* const module = opened.load(std::memory_order_acquire))
        return module;
    Opening const opening = openModule();
    if (opening.module)
        opened.store(opening.module, std::memory_order_release);
    else if (!isProblemReported.exchange(true))
        KXLog("Metadata", "KXPlatform->no services of this machine: %s", opening.problem.c_str());
    return opening.module;
}

}

KXPlatform::Ref KXPlatform::platformOfThisMachine(KXDecodingLimits const& limits)
{
    auto const* const module = openedModule();
    return module ? module->newPlatform(limits) : absentPlatform();
}

KXMachineReport KXMachineReport::reportOfThisMachine()
{
    auto const* const module = openedModule();
    return module ? module->newReport() : KXMachineReport();
}
