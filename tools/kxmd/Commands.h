#pragma once

#include <CLI/App.hpp>

class Session;

/// A subcommand, as each tells of itself in a file of its own.
struct Command {
    /// One that writes files cleans up when a signal ends it; one that only reads starts sooner
    /// without.
    enum class Nature { reads, writes };

    char const* name;
    char const* description;
    char const* group; ///< The heading that it stands under where all are listed.
    char const* examples; ///< Command lines, each indented by four spaces.
    Nature nature;
    /// Adds the options, and what is done as soon as they are parsed. `session` lives until then.
    void (*addOptions)(CLI::App& command, Session& session);
};

constexpr char const* lookingGroup = "Look into files";
constexpr char const* pictureGroup = "Make pictures of them";
constexpr char const* editGroup = "Edit a copy";
constexpr char const* collectionGroup = "Whole collections";
constexpr char const* machineGroup = "This machine";

extern Command const infoCommand;
extern Command const atomsCommand;
extern Command const framesCommand;
extern Command const exifCommand;
extern Command const thumbnailCommand;
extern Command const compositeCommand;
extern Command const iconCommand;
extern Command const posterCommand;
extern Command const cacheNameCommand;
extern Command const coverCommand;
extern Command const cleanCommand;
extern Command const convertCommand;
extern Command const prepareCommand;
extern Command const sheetCommand;
extern Command const doctorCommand;
