#include "Base64.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr std::string_view alphabet
    = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}

std::string base64Of(std::string_view bytes)
{
    std::string text;
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            bits = bits << 8 | (i < bytes.size() ? static_cast<std::uint8_t>(bytes[i]) : 0u);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= bytes.size() ? alphabet[bits >> (18 - 6 * i) & 0x3F] : '=';
    }
    return text;
}

std::string bytesOfBase64(std::string_view base64)
{
    std::string bytes;
    std::uint32_t bits = 0;
    int count = 0; // Of the bits that are not yet in a byte.
    for (char const character : base64) {
        std::size_t const value = alphabet.find(character);
        if (value == alphabet.npos)
            continue;
        bits = (bits << 6 | static_cast<std::uint32_t>(value)) & 0xFFFF;
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFF);
        }
    }
    return bytes;
}
