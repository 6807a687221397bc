#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXMachineReport.h"
#include "kxmd/platform/KXPlatform.h"

/// What the module with this machine's services offers. It is a library of its own, which is opened
/// when somebody first asks for them: a host that only reads files loads no library of the desktop.
struct KXPlatformModule {
    char const* version; ///< Of the library that it was built for.
    KXPlatform::Ref (*newPlatform)(KXDecodingLimits const& limits);
    KXMachineReport (*newReport)();
};

/// What the module exports, found by its name.
extern "C" KX_EXPORT KXPlatformModule const KXPlatformModuleOfThisMachine;
