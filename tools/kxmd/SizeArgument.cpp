#include "SizeArgument.h"

#include <charconv>
#include <system_error>

namespace {

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Moves `text` past the number that it begins with.
std::optional<double> takePoints(std::string_view& text)
{
    if (text.empty() || !isDigit(text.front())) // No sign, no "inf".
        return std::nullopt;
    double points;
    auto const [end, error]
        = std::from_chars(text.data(), text.data() + text.size(), points, std::chars_format::fixed);
    if (error != std::errc() || points <= 0)
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return points;
}

}

std::optional<KXSize> sizeFromArgument(std::string_view text)
{
    auto const width = takePoints(text);
    if (!width || text.empty() || text.front() != 'x')
        return std::nullopt;
    text.remove_prefix(1);
    auto const height = takePoints(text);
    if (!height || !text.empty())
        return std::nullopt;
    return KXSize { *width, *height };
}
