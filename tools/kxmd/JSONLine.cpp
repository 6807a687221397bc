#include "JSONLine.h"

#include "Base64.h"
#include "UTF8.h"

#include <kxmd/base/KXPrintableText.h>

#include <array>
#include <cmath>
#include <cstdio>

namespace {

/// RFC 8259, 7. All of these characters are in the basic multilingual plane, and in texts only.
std::string escapeSequence(char32_t character)
{
    std::array<char, 7> sequence;
    std::snprintf(
        sequence.data(), sequence.size(), "\\u%04x", static_cast<unsigned>(character) & 0xFFFF);
    return sequence.data();
}

}

std::string jsonText(JSON const& value)
{
    std::string const text = value.dump(-1, ' ', false, JSON::error_handler_t::replace);
    return KXTextReplacingControlCharactersWith(text, escapeSequence);
}

std::string jsonLine(JSON const& value) { return jsonText(value) + '\n'; }

std::optional<std::int64_t> wholeNumber(double number)
{
    constexpr double exactlyWhole
        = 9007199254740992.0; // 2^53: below it every whole number is exact.
    if (std::abs(number) <= exactlyWhole && number == std::trunc(number))
        return static_cast<std::int64_t>(number);
    return std::nullopt;
}

JSON jsonNumber(double number)
{
    auto const whole = wholeNumber(number);
    return whole ? JSON(*whole) : JSON(number);
}

void addPath(JSON& object, std::string_view key, std::string_view bytesKey, std::string_view path)
{
    object[std::string(key)] = path;
    if (!isUTF8(path))
        object[std::string(bytesKey)] = base64Of(path);
}

JSON jsonOfFile(std::string_view path, JSON const& fields)
{
    JSON object = JSON::object();
    addPath(object, "path", "pathBytes", path);
    object.update(fields);
    return object;
}
