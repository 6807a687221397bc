#include "kxmd/host/KXParseBudget.h"

#include "kxmd/host/KXLog.h"

bool KXParseBudget::refuseNode(char const* message)
{
    if (!_isReported)
        KXLog("Metadata", "%s", message);
    _isReported = true;
    return false;
}
