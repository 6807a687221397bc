#include "kxmd/host/KXObject.h"

KXObject::~KXObject() = default;
