#pragma once

#include "EditOutput.h"
#include "TemporaryFolder.h"

#include <kxmd/host/KXDCFileProcessor.h>

#include <CLI/App.hpp>

class Session;

/// The options that subcommands share which run a processor on one file.
void addProcessingOptions(CLI::App& command, EditOptions& options);

/// The file at `options.path`, where there is a folder for what the processor leaves behind; null,
/// and reported, when either is missing.
std::unique_ptr<EditInput> processingInput(
    EditOptions const& options, TemporaryFolder const& folder, Session& session);

/// A processor, and what is expected of it.
struct Process {
    KXDCFileProcessor const& processor;
    bool makesAnew; ///< A new file, rather than the old one without something.
    char const* refusal;
};

/// Runs a processor on the file and writes what it makes, unless it cannot do what was asked.
void process(
    EditOptions const& options, Process const& process, EditInput const& input, Session& session);
