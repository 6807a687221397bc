#pragma once

#include "kxmd/base/KXExport.h"

#include <string>
#include <string_view>

/// The path of what lies at `relativePath` from the folder of this library, wherever both are
/// installed; empty when that folder is not known.
KX_EXPORT std::string pathBesideLibrary(std::string_view relativePath);
