#pragma once

#include "kxmd/base/KXExport.h"

/// The root of the objects that a host may keep among a file's keyed values.
class KX_EXPORT KXObject {
public:
    virtual ~KXObject();

    KXObject(KXObject const&) = delete;
    KXObject& operator=(KXObject const&) = delete;

protected:
    /// For classes derived from it.
    KXObject() = default;
};
