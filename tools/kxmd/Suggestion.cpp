#include "Suggestion.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

namespace {

/// How many letters must be added, left out, replaced or exchanged with their neighbours to make
/// one text of another: the restricted distance of Damerau and Levenshtein.
std::size_t distanceBetween(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> beforeLast, last(b.size() + 1), current(b.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t { 0 });
    for (std::size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            bool const isOther = a[i - 1] != b[j - 1];
            current[j] = std::min({ last[j] + 1, current[j - 1] + 1, last[j - 1] + isOther });
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                current[j] = std::min(current[j], beforeLast[j - 2] + 1);
        }
        beforeLast = std::exchange(last, current);
    }
    return last.back();
}

/// The subcommand that was reached.
CLI::App const& innermost(CLI::App const& app)
{
    CLI::App const* command = &app;
    while (!command->get_subcommands().empty())
        command = command->get_subcommands().front();
    return *command;
}

std::vector<std::string> namesIn(CLI::App const& command)
{
    std::vector<std::string> names;
    for (auto const* const subcommand : command.get_subcommands([](auto const*) { return true; }))
        names.push_back(subcommand->get_name());
    for (auto const* const option : command.get_options()) {
        for (std::string const& name : option->get_lnames())
            names.push_back("--" + name);
    }
    return names;
}

}

std::string suggestionFor(CLI::App const& app)
{
    auto const names = namesIn(innermost(app));
    for (std::string const& typed : app.remaining(true)) {
        constexpr std::size_t most = 2;
        auto const distance
            = [&typed](std::string const& name) { return distanceBetween(typed, name); };
        auto const nearest = std::ranges::min_element(names, {}, distance);
        // Of a short word that would leave nothing.
        if (nearest != names.end() && distance(*nearest) <= std::min(most, typed.size() / 3))
            return *nearest;
    }
    return {};
}
