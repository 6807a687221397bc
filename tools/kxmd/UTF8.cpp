#include "UTF8.h"

#include <cstdint>

namespace {

/// What well-formed characters begin with, and what their second bytes are; further ones are 80 to
/// BF.
struct Form {
    std::uint8_t first, last;
    std::uint8_t length;
    std::uint8_t secondFirst, secondLast;
};

constexpr Form forms[] {
    { 0x01, 0x7F, 1, 0, 0 },
    { 0xC2, 0xDF, 2, 0x80, 0xBF },
    { 0xE0, 0xE0, 3, 0xA0, 0xBF },
    { 0xE1, 0xEC, 3, 0x80, 0xBF },
    { 0xED, 0xED, 3, 0x80, 0x9F },
    { 0xEE, 0xEF, 3, 0x80, 0xBF },
    { 0xF0, 0xF0, 4, 0x90, 0xBF },
    { 0xF1, 0xF3, 4, 0x80, 0xBF },
    { 0xF4, 0xF4, 4, 0x80, 0x8F },
};

bool isBetween(char character, std::uint8_t first, std::uint8_t last)
{
    auto const byte = static_cast<std::uint8_t>(character);
    return first <= byte && byte <= last;
}

/// 0 when `text`, which is not empty, begins with none.
std::size_t lengthOfCharacter(std::string_view text)
{
    for (Form const& form : forms) {
        if (!isBetween(text.front(), form.first, form.last))
            continue;
        bool isGood = form.length <= text.size()
            && (form.length == 1 || isBetween(text[1], form.secondFirst, form.secondLast));
        for (std::size_t i = 2; isGood && i < form.length; ++i)
            isGood = isBetween(text[i], 0x80, 0xBF);
        return isGood ? form.length : 0;
    }
    return 0;
}

}

std::size_t lengthOfUTF8(std::string_view text)
{
    std::size_t length = 0;
    while (length < text.size()) {
        std::size_t const character = lengthOfCharacter(text.substr(length));
        if (!character)
            break;
        length += character;
    }
    return length;
}
