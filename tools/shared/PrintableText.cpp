#include "tools/shared/PrintableText.h"

std::string withoutControlCharacters(std::string_view text)
{
    std::string shown(text);
    for (char& character : shown) {
        auto const code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7F)
            character = '?';
    }
    // The second half of them, U+0080 to U+009F, is two bytes in UTF-8.
    for (std::size_t at = 0; (at = shown.find('\xC2', at)) != std::string::npos; ++at) {
        if (at + 1 < shown.size() && static_cast<unsigned char>(shown[at + 1]) < 0xA0)
            shown.replace(at, 2, "?");
    }
    return shown;
}
