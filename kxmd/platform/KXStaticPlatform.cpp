// In place of KXPlatformModule.cpp where the library is part of a program, and this machine's
// services with it.

#include "kxmd/platform/KXPlatformModulePrivate.h"

KXPlatform::Ref KXPlatform::platformOfThisMachine(KXDecodingLimits const& limits)
{
    return KXPlatformModuleOfThisMachine.newPlatform(limits);
}

KXMachineReport KXMachineReport::reportOfThisMachine()
{
    return KXPlatformModuleOfThisMachine.newReport();
}
