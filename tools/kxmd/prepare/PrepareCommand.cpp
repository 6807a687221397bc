// kxmd prepare: makes a collection ready for a phone.

#include "NameFilter.h"
#include "PrepareRun.h"
#include "tools/kxmd/Commands.h"
#include "tools/kxmd/Session.h"
#include "tools/kxmd/TargetFolder.h"
#include "tools/kxmd/Usage.h"
#include "tools/kxmd/sheet/Sheet.h"

#include <CLI/Validators.hpp>

#include <map>
#include <memory>

namespace {

/// Said of an option's value that was most likely forgotten.
std::string looksLikeOption(std::string const& text)
{
    return '"' + text + "\" looks like an option";
}

/// What is wrong with the name of a playlist; nothing when it names a file in the folder.
std::string problemOfPlaylistName(std::string const& typed)
{
    std::string const name = withoutLiteralMark(typed);
    if (name.starts_with('-'))
        return looksLikeOption(name);
    bool const isName
        = !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
    return isName ? "" : "\"" + name + "\" is not the name of a file";
}

void addPatterns(CLI::App& command, std::string const& name, std::vector<std::string>& patterns,
    std::string const& description)
{
    auto const take = [&patterns, name](std::string const& typed) {
        std::string pattern = withoutLiteralMark(typed);
        while (pattern.ends_with('/')) // A folder has the same name without.
            pattern.pop_back();
        if (pattern.empty())
            throw CLI::ValidationError(name, "is empty");
        if (pattern.starts_with('-'))
            throw CLI::ValidationError(name, looksLikeOption(pattern) + "; as a pattern, [-]...");
        patterns.push_back(std::move(pattern));
    };
    command.add_option_function<std::string>(name, take, description)
        ->type_name("GLOB")
        ->expected(1)
        ->trigger_on_parse();
}

void addPlaylistOptions(CLI::App& command, PlaylistOptions& options)
{
    using Format = PlaylistOptions::Format;
    addOptionalText(command, "--playlist", options.name, "Also write a playlist of this name")
        ->type_name("NAME")
        ->check(problemOfPlaylistName);
    command.add_flag("--playlist-each-folder", options.isForEachFolder,
        "Also write a playlist of each folder with music, named after it");
    auto const take = [&options](std::string const& format) {
        options.format = format == "m3u8" ? Format::m3u8 : Format::m3u;
    };
    command
        .add_option_function<std::string>(
            "--playlist-format", take, "m3u (default), or m3u8 with durations and titles")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({ "m3u", "m3u8" }).description(""));
}

void addStepOptions(CLI::App& command, PrepareOptions& options)
{
    PreparationOptions& steps = options.preparation;
    auto const leaveOut = [](bool& step) { return [&step] { step = false; }; };
    command.add_flag_callback(
        "--no-covers", leaveOut(steps.insertsCovers), "Insert no album covers");
    command.add_flag_callback("--no-clean", leaveOut(steps.cleans), "Clean no phone videos");
    command.add_flag_callback(
        "--no-convert", leaveOut(steps.converts), "Convert no lossless audio");
    command.add_flag("--keep-metadata", steps.keepsMetadata,
        "Remove only the user data of phone videos, and keep their other metadata");
    constexpr unsigned smallest = 200, largest = 4096; // A smaller one would be no cover.
    command.add_option("--cover-size", steps.coverSize, "Width and height of covers (256)")
        ->type_name("PIXELS")
        ->check(CLI::Range(smallest, largest).description(""));
}

void addChoiceOptions(CLI::App& command, PrepareOptions& options)
{
    addPatterns(command, "--exclude", options.excluded, "Leave out files and folders that match");
    addPatterns(command, "--include", options.included,
        "Take files and folders that match, though left out otherwise");
    command.add_flag("--all", options.takesAll, "Take what is left out otherwise, such as *.log");
    command.add_flag("--follow-links", options.followsLinks, "Follow links that lead elsewhere");
}

void addRunOptions(CLI::App& command, PrepareOptions& options)
{
    command.add_flag(
        "-n,--dry-run", options.preparation.isDryRun, "Tell what would be done, and do nothing");
    command.add_flag("--checksum", options.preparation.sumsUp,
        "Tell by their contents which files have changed, not by size and time");
    command.add_flag("--delete", options.removes, "Remove prepared files whose sources are gone");
    command.add_flag(
        "--delete-many", options.removesMany, "The same, even for more than a third of all files");
    command.add_flag("--anyway", options.ignoresSpace, "Begin even if there is not enough space");
    addJobs(command, options.jobs);
    command.add_flag("--json", options.isJSON, "Print a JSON object for each file");
    addOptionalText(command, "--report", options.page, "Also write a page that shows all files")
        ->type_name("OUT")
        ->check(problemOfSheetName);
}

/// Adds options that the help lists under a heading of their own.
template <class Options>
void addUnder(char const* heading, CLI::App& command, Options& options,
    void (*add)(CLI::App& command, Options& options))
{
    std::size_t const before = command.get_options().size();
    add(command, options);
    auto const all = command.get_options();
    for (std::size_t i = before; i < all.size(); ++i)
        all[i]->group(heading);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<PrepareOptions>();
    addTargetFolder(command, options->folder, "Folder to write the prepared files to")->required();
    addRunOptions(command, *options);
    addUnder("What is done to files", command, *options, addStepOptions);
    addUnder("Playlists", command, options->playlists, addPlaylistOptions);
    addUnder("Which files", command, *options, addChoiceOptions);
    auto* const paths = addTexts(command, "PATH", "Files and folders to prepare");
    command.callback([options, paths, &session] {
        options->paths = textsOf(*paths);
        options->preparation.listsSongs = options->playlists.areWanted();
        // The last thing that the program does. To free all that it knows of 20,000 files would
        // take a seventh of the time in which they are found to be as they were.
        static auto& run = *new PrepareRun(*options, session);
        run.run();
    });
}

}

Command const prepareCommand { .name = "prepare",
    .description = "Make music and videos ready for a phone, into a folder",
    .group = collectionGroup,
    .examples = R"(    kxmd prepare ~/Music/ --to /media/phone/Music -n          what would be done
    kxmd prepare ~/Music/ --to /media/phone/Music --delete    also removes what is gone)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
