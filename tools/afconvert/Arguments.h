#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What the converter is asked for.
struct Arguments {
    std::int64_t bitRate { 0 }; ///< Bits per second; 0 leaves it to the encoder.
    std::string source;
    std::string target;
};

/// The arguments after the program's name: options, then source and target, which are paths
/// whatever they begin with. Absent, with `problem` filled, when they make no sense.
std::optional<Arguments> parsedArguments(
    std::vector<std::string> const& words, std::string& problem);
