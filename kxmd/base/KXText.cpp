#include "kxmd/base/KXTextPrivate.h"

#include <algorithm>
#include <string_view>

namespace {

using Bytes = std::span<std::uint8_t const>;

bool isASCII(Bytes bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte < 0x80; });
}

std::string textOfBytes(Bytes bytes) { return std::string(bytes.begin(), bytes.end()); }

void appendCodePoint(std::string& text, char32_t codePoint)
{
    auto const append = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        append(codePoint);
    } else if (codePoint < 0x800) {
        append(0xC0 | (codePoint >> 6));
        append(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        append(0xE0 | (codePoint >> 12));
        append(0x80 | ((codePoint >> 6) & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    } else {
        append(0xF0 | (codePoint >> 18));
        append(0x80 | ((codePoint >> 12) & 0x3F));
        append(0x80 | ((codePoint >> 6) & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    }
}

std::string textFromLatin1(Bytes bytes)
{
    if (isASCII(bytes))
        return textOfBytes(bytes);
    std::string text;
    text.reserve(bytes.size() * 2);
    for (std::uint8_t const byte : bytes)
        appendCodePoint(text, byte);
    return text;
}

bool isUTF8(Bytes bytes)
{
    while (!bytes.empty()) {
        std::size_t const length = lengthOfUTF8Sequence(bytes);
        if (!length)
            return false;
        bytes = bytes.subspan(length);
    }
    return true;
}

std::optional<std::string> textFromUTF16(Bytes bytes)
{
    if (bytes.size() % 2)
        return std::nullopt;
    bool const littleEndian = bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE;
    bool const marked = littleEndian || (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF);
    auto const unitAt = [&](std::size_t i) {
        return static_cast<char32_t>(
            littleEndian ? bytes[i] | (bytes[i + 1] << 8) : (bytes[i] << 8) | bytes[i + 1]);
    };
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t i = marked ? 2 : 0; i < bytes.size(); i += 2) {
        char32_t unit = unitAt(i);
        if (unit >= 0xD800 && unit <= 0xDFFF) {
            if (unit >= 0xDC00 || i + 2 >= bytes.size())
                return std::nullopt;
            char32_t const low = unitAt(i + 2);
            if (low < 0xDC00 || low > 0xDFFF)
                return std::nullopt;
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        }
        appendCodePoint(text, unit);
    }
    return text;
}

}

std::size_t lengthOfUTF8Sequence(Bytes bytes)
{
    std::uint8_t const lead = bytes[0];
    if (lead < 0x80)
        return 1;
    std::size_t const length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || bytes.size() < length)
        return 0;
    // The first continuation byte is narrower where overlong forms, surrogates and codes past
    // U+10FFFF would begin.
    std::uint8_t const lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    std::uint8_t const highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (bytes[1] < lowest || bytes[1] > highest)
        return 0;
    for (std::size_t i = 2; i < length; ++i) {
        if ((bytes[i] & 0xC0) != 0x80)
            return 0;
    }
    return length;
}

std::optional<std::string> textFromBytes(Bytes bytes, KXStringEncoding encoding)
{
    switch (encoding) {
    case KXStringEncodingASCII:
        return isASCII(bytes) ? std::optional(textOfBytes(bytes)) : std::nullopt;
    case KXStringEncodingUTF8:
        return isUTF8(bytes) ? std::optional(textOfBytes(bytes)) : std::nullopt;
    case KXStringEncodingLatin1:
        return textFromLatin1(bytes);
    case KXStringEncodingUnicode:
        return textFromUTF16(bytes);
    }
    return std::nullopt;
}

std::size_t terminatorSizeForEncoding(KXStringEncoding encoding)
{
    return encoding == KXStringEncodingUnicode ? 2 : 1;
}
