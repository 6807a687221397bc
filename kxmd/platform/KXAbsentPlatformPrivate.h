#pragma once

#include "kxmd/platform/KXPlatform.h"

/// A platform where there is nothing, for a machine whose services cannot be reached. Handlers are
/// called on a thread of its main queue, since nobody else would call them.
KX_EXPORT_FOR_TESTS KXPlatform::Ref absentPlatform();
