#include "JSONText.h"

#include "Base64.h"
#include "UTF8.h"

#include <algorithm>
#include <utility>

namespace {

/// Whether a character of a text stands for itself (RFC 8259, 7) and is no control of a terminal.
bool isPlain(char character)
{
    return character >= ' ' && character <= '~' && character != '"' && character != '\\';
}

}

void JSONText::name(std::string_view name)
{
    separate();
    _text.append("\"").append(name).append("\":");
    _isFirst = true;
}

void JSONText::add(std::string_view text)
{
    if (!std::ranges::all_of(text, isPlain))
        return addValue(JSON(text));
    separate();
    _text.append("\"").append(text).append("\"");
}

void JSONText::add(double number)
{
    if (auto const whole = wholeNumber(number))
        return add(*whole);
    addValue(JSON(number));
}

void JSONText::addValue(JSON const& value) { addLiteral(jsonText(value)); }

void JSONText::addPath(std::string_view itsName, std::string_view bytesName, std::string_view path)
{
    addNamed(itsName, path);
    if (!isUTF8(path))
        addNamed(bytesName, base64Of(path));
}

std::string JSONText::takeLine() &&
{
    _text += '\n';
    return std::move(_text);
}

void JSONText::open(char bracket)
{
    separate();
    _text += bracket;
    _isFirst = true;
}

void JSONText::close(char bracket)
{
    _text += bracket;
    _isFirst = false;
}

void JSONText::separate()
{
    if (!_isFirst)
        _text += ',';
    _isFirst = false;
}

void JSONText::addLiteral(std::string_view literal)
{
    separate();
    _text += literal;
}
