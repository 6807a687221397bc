#include "kxmd/base/KXObject.h"

KXObject::~KXObject() = default;
