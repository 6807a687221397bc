#pragma once

#include "kxmd/base/KXExport.h"

#include <string>
#include <string_view>

/// `textWithoutControlCharacters:` The UTF-8 text with each control character, U+0000 to U+001F and
/// U+007F to U+009F, replaced by "?": a name in a file can neither break the line that it stands in
/// nor steer the terminal.
KX_EXPORT std::string KXTextWithoutControlCharacters(std::string_view text);
