#pragma once

#include "kxmd/base/KXExport.h"

#include <functional>
#include <string>
#include <string_view>

/// `textWithoutControlCharacters:` The UTF-8 text with a "?" in place of each character that a
/// terminal would obey and not show: a name in a file can neither break the line that it stands in,
/// nor move the cursor, nor turn the order of what follows.
///
/// These are the control characters (U+0000 to U+001F, U+007F to U+009F), the separators of lines
/// and paragraphs (U+2028, U+2029), and those that steer bidirectional text (Unicode Standard Annex
/// 9, table 1). A byte that is not UTF-8 counts as one: some terminals take 0x9B for a control.
KX_EXPORT std::string KXTextWithoutControlCharacters(std::string_view text);

/// `textReplacingControlCharacters:with:` The same with what `replacement` makes of each of these
/// characters; of a byte that is not UTF-8 it is given U+FFFD.
KX_EXPORT std::string KXTextReplacingControlCharactersWith(
    std::string_view text, std::function<std::string(char32_t)> const& replacement);
