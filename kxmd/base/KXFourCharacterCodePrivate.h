#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// A code of four Latin-1 characters in 32 bits, the first in the highest: the type of an atom or a
/// chunk, as it stands in a file.
class KXFourCharacterCode {
public:
    static constexpr std::size_t length = 4;

    /// No code: four zero bytes.
    constexpr KXFourCharacterCode() = default;

    constexpr explicit KXFourCharacterCode(std::uint32_t value)
        : _value(value)
    {
    }

    /// From a literal in UTF-8 such as "moov" or "©nam"; does not compile unless that has four
    /// Latin-1 characters.
    consteval KXFourCharacterCode(char const* literal)
        : KXFourCharacterCode(codeOfText(literal).value())
    {
    }

    /// The code of a text in UTF-8; absent unless that has four Latin-1 characters.
    static constexpr std::optional<KXFourCharacterCode> codeOfText(std::string_view text)
    {
        std::uint32_t value = 0;
        std::size_t count = 0;
        for (std::size_t at = 0; at < text.size(); ++at, ++count) {
            auto character = static_cast<std::uint8_t>(text[at]);
            // U+0080 to U+00FF are two bytes: C2 or C3 and a continuation byte.
            if (character >= 0x80) {
                if (character >> 1 != 0xC2 >> 1 || ++at == text.size())
                    return std::nullopt;
                character
                    = static_cast<std::uint8_t>(character << 6 | (text[at] & 0x3F)); // In 8 bits.
            }
            value = value << 8 | character;
        }
        return count == length ? std::optional(KXFourCharacterCode(value)) : std::nullopt;
    }

    constexpr std::uint32_t value() const { return _value; }
    constexpr bool isNone() const { return !_value; }
    constexpr bool operator==(KXFourCharacterCode const&) const = default;

    /// The four bytes as they stand in a file.
    constexpr std::array<std::uint8_t, length> bytes() const
    {
        return { static_cast<std::uint8_t>(_value >> 24), static_cast<std::uint8_t>(_value >> 16),
            static_cast<std::uint8_t>(_value >> 8), static_cast<std::uint8_t>(_value) };
    }

    /// The four characters in UTF-8.
    std::string text() const
    {
        std::array<char, 2 * length> text; // At most two bytes each.
        std::size_t count = 0;
        for (std::uint8_t const character : bytes()) {
            if (character >= 0x80)
                text[count++] = static_cast<char>(0xC0 | character >> 6);
            text[count++]
                = static_cast<char>(character < 0x80 ? character : 0x80 | (character & 0x3F));
        }
        return { text.data(), count };
    }

private:
    std::uint32_t _value { 0 };
};

/// Whether `codes` has `code`.
constexpr bool isOneOf(std::span<KXFourCharacterCode const> codes, KXFourCharacterCode code)
{
    return std::ranges::find(codes, code) != codes.end();
}
