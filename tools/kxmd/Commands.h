#pragma once

#include <CLI/App.hpp>

class Session;

// Each adds one subcommand to `app`; `session` must live until the command line is parsed, since a
// subcommand runs as soon as it is.

void addInfoCommand(CLI::App& app, Session& session);
void addAtomsCommand(CLI::App& app, Session& session);
void addFramesCommand(CLI::App& app, Session& session);
void addExifCommand(CLI::App& app, Session& session);
void addThumbnailCommand(CLI::App& app, Session& session);
void addCompositeCommand(CLI::App& app, Session& session);
void addIconCommand(CLI::App& app, Session& session);
void addPosterCommand(CLI::App& app, Session& session);
void addCacheNameCommand(CLI::App& app, Session& session);
void addCoverCommand(CLI::App& app, Session& session);
void addCleanCommand(CLI::App& app, Session& session);
void addConvertCommand(CLI::App& app, Session& session);
void addPrepareCommand(CLI::App& app, Session& session);
