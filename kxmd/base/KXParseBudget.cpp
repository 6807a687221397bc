#include "kxmd/base/KXParseBudget.h"

#include "kxmd/base/KXLog.h"

bool KXParseBudget::refuseNode(char const* message)
{
    if (!_isReported)
        KXLog("Metadata", "%s", message);
    _isReported = true;
    return false;
}
