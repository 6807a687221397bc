#include "NameWithoutCase.h"

#include "Desktop.h"
#include "UTF8.h"

#include <algorithm>

std::string nameWithoutCase(std::string const& name)
{
    bool const isASCII
        = std::ranges::none_of(name, [](char character) { return character & 0x80; });
    if (!isASCII && isUTF8(name))
        return desktop().textWithoutCase(name);
    std::string folded = name;
    std::ranges::transform(folded, folded.begin(), [](char character) {
        bool const isCapital = 'A' <= character && character <= 'Z';
        return isCapital ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return folded;
}
