#include "kxmd/base/KXPrintableText.h"

std::string KXTextWithoutControlCharacters(std::string_view text)
{
    std::string shown(text);
    for (char& character : shown) {
        auto const code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7F)
            character = '?';
    }
    // The second half of them, U+0080 to U+009F, is two bytes in UTF-8: C2 80 to C2 9F.
    for (std::size_t at = 0; (at = shown.find('\xC2', at)) != std::string::npos; ++at) {
        if (at + 1 < shown.size() && (shown[at + 1] & 0xE0) == 0x80)
            shown.replace(at, 2, "?");
    }
    return shown;
}
