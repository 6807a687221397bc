#pragma once

#include "EditOutput.h"

#include <CLI/App.hpp>

#include <cstdint>

class Session;

/// The options that subcommands share which process one file.
void addProcessingOptions(CLI::App& command, EditOptions& options);

/// Sizes of a file that is processed, in bytes.
struct ProcessedSizes {
    std::uint64_t before;
    std::uint64_t predicted; ///< Wraps for a file whose atoms claim more than it has.
    std::uint64_t after;
};

/// Tells in one line that `options.path` became `options.output`, changed or copied.
void reportProcessed(
    EditOptions const& options, bool isChanged, ProcessedSizes sizes, Session& session);
