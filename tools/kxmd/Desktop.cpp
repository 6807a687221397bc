#include "Desktop.h"

#include <kxmd/version.h>

#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace {

/// Opens the module, which is never closed.
DesktopModule const& openDesktop()
{
    std::error_code ignored; // Then nothing is found, and that is said.
    auto const command = std::filesystem::read_symlink("/proc/self/exe", ignored);
    std::string const path = (command.parent_path() / KXMD_DESKTOP_MODULE).string();
    void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!library)
        throw MissingModule(::dlerror());
    auto const* const module
        = static_cast<DesktopModule const*>(::dlsym(library, "kxmdDesktopModule"));
    if (!module || module->version != std::string_view(KXMD_VERSION))
        throw MissingModule(path + ": is not of this version");
    module->dropRemarks();
    return *module;
}

}

DesktopModule const& desktop()
{
    static DesktopModule const& module = openDesktop();
    return module;
}

KXPlatform::Ref machine()
{
    static_cast<void>(desktop());
    // Where they are missing there is nothing at all.
    static bool const isThere
        = KXPlatform::shared()->fileManager->sizeOfFileAtPath("/").has_value();
    if (!isThere)
        throw MissingModule("the services of this machine cannot be used");
    return KXPlatform::shared();
}

KXMDThumbnailController::Ref const& thumbnailController()
{
    static_cast<void>(machine());
    return KXMDThumbnailController::sharedController();
}
