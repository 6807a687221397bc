#include "TextReport.h"

#include "Session.h"
#include "Terminal.h"

#include <kxmd/base/KXPrintableText.h>

#include <algorithm>

namespace {

constexpr std::size_t nameWidth = 14; // The longest name, "Album artist", and a gap.

}

TextReport::TextReport(std::string_view heading)
    : _text(emphasised(KXTextWithoutControlCharacters(heading), Emphasis::heading) + '\n')
{
}

void TextReport::addLine(std::string_view name, std::string_view value)
{
    _text.append("  ").append(KXTextWithoutControlCharacters(name));
    _text.append(nameWidth - std::min(name.size(), nameWidth - 1), ' ');
    _text.append(KXTextWithoutControlCharacters(value)).append("\n");
}

std::string byteCount(unsigned long long count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}
