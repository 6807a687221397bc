#pragma once

#include <CLI/App.hpp>

#include <string>

/// What a person may have meant who typed what `app` did not expect: the name of a subcommand or
/// option that is almost the same. Empty when nothing is.
std::string suggestionFor(CLI::App const& app);
