#include <kxmd/version.h>

char const* KXVersion() { return KXMD_VERSION; }

int KXVersionNumber() { return KXMD_VERSION_NUMBER; }
