#include "kxmd/base/KXPrintableText.h"

#include "kxmd/base/KXTextPrivate.h"

#include <algorithm>

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

bool isSteering(char32_t character)
{
    bool const isControl = character < 0x20 || (character >= 0x7F && character <= 0x9F);
    bool const isSeparator = character == 0x2028 || character == 0x2029;
    bool const isMark = character == 0x061C || character == 0x200E || character == 0x200F;
    bool const isEmbedding = character >= 0x202A && character <= 0x202E;
    bool const isIsolate = character >= 0x2066 && character <= 0x2069;
    return isControl || isSeparator || isMark || isEmbedding || isIsolate;
}

/// The character of a whole UTF-8 sequence.
char32_t characterOf(std::string_view sequence)
{
    constexpr unsigned char marksOfLead[] { 0x7F, 0x1F, 0x0F, 0x07 };
    char32_t character = static_cast<unsigned char>(sequence[0]) & marksOfLead[sequence.size() - 1];
    for (char const byte : sequence.substr(1))
        character = character << 6 | (static_cast<unsigned char>(byte) & 0x3F);
    return character;
}

bool isPlain(char byte) { return byte >= 0x20 && byte < 0x7F; }

}

std::string KXTextReplacingControlCharactersWith(
    std::string_view text, std::function<std::string(char32_t)> const& replacement)
{
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        auto const plainEnd = std::ranges::find_if_not(text, isPlain);
        auto const plainLength = static_cast<std::size_t>(plainEnd - text.begin());
        shown.append(text.substr(0, plainLength));
        text.remove_prefix(plainLength);
        if (text.empty())
            break;
        std::size_t const length = lengthOfUTF8Sequence(
            { reinterpret_cast<std::uint8_t const*>(text.data()), text.size() });
        auto const sequence = text.substr(0, std::max<std::size_t>(length, 1));
        char32_t const character = length ? characterOf(sequence) : replacementCharacter;
        if (length && !isSteering(character))
            shown.append(sequence);
        else
            shown.append(replacement(character));
        text.remove_prefix(sequence.size());
    }
    return shown;
}

std::string KXTextWithoutControlCharacters(std::string_view text)
{
    return KXTextReplacingControlCharactersWith(text, [](char32_t) { return "?"; });
}
