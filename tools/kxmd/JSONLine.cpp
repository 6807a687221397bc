#include "JSONLine.h"

#include <cmath>
#include <cstdint>

std::string jsonLine(JSON const& value)
{
    return value.dump(-1, ' ', false, JSON::error_handler_t::replace) + '\n';
}

JSON jsonNumber(double number)
{
    constexpr double exactlyWhole
        = 9007199254740992.0; // 2^53: below it every whole number is exact.
    if (std::abs(number) <= exactlyWhole && number == std::trunc(number))
        return static_cast<std::int64_t>(number);
    return number;
}
