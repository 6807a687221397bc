#include "Arguments.h"

#include <charconv>
#include <string_view>

namespace {

std::optional<std::int64_t> bitRateOf(std::string_view text)
{
    constexpr std::int64_t lowest = 8000, highest = 1'000'000;
    std::int64_t rate;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), rate);
    bool const isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber && rate >= lowest && rate <= highest ? std::optional(rate) : std::nullopt;
}

}

std::optional<Arguments> parsedArguments(
    std::vector<std::string> const& words, std::string& problem)
{
    constexpr std::size_t paths = 2;
    if (words.size() < paths || (words.size() - paths) % 2 != 0) {
        problem = "expected options with a value each, then a source and a target";
        return std::nullopt;
    }
    Arguments arguments;
    for (std::size_t i = 0; i < words.size() - paths; i += 2) {
        std::string const& option = words[i];
        std::string const& value = words[i + 1];
        if ((option == "-f" && value == "m4af") || (option == "-d" && value == "aac"))
            continue; // The only format that we write.
        auto const rate = option == "-b" ? bitRateOf(value) : std::nullopt;
        if (!rate) {
            problem = "\"" + option + " " + value + "\" is not supported";
            return std::nullopt;
        }
        arguments.bitRate = *rate;
    }
    arguments.source = words[words.size() - 2];
    arguments.target = words.back();
    return arguments;
}
