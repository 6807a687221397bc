// kxmd prepare: makes a collection ready for a phone.

#include "Commands.h"
#include "FileWalk.h"
#include "OrderedWork.h"
#include "Playlist.h"
#include "Preparation.h"
#include "PreparationReport.h"
#include "Session.h"
#include "Targets.h"
#include "TemporaryFolder.h"
#include "Usage.h"

#include <CLI/Validators.hpp>

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>

namespace {

namespace fs = std::filesystem;

struct Options {
    CLI::Option* paths { nullptr };
    std::string folder;
    std::string playlist;
    bool leavesCovers { false };
    bool leavesUncleaned { false };
    bool leavesUnconverted { false };
    bool followsLinks { false };
    unsigned jobs { std::max(1u, std::thread::hardware_concurrency()) };
    bool json { false };
};

/// What is wrong with the name of a playlist; nothing when it names a file in the folder.
std::string problemOfPlaylistName(std::string const& typed)
{
    std::string const name = withoutLiteralMark(typed);
    bool const isName = !name.empty() && name.find('/') == std::string::npos;
    return isName ? "" : "\"" + name + "\" is not the name of a file";
}

std::string problemOfFolderName(std::string const& typed)
{
    return withoutLiteralMark(typed).empty() ? "is empty" : "";
}

/// Without slashes at its end, so that paths below it read well; the root stays what it is.
std::string folderFromArgument(std::string folder)
{
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    return folder;
}

/// False, and reported, when it cannot be made.
bool makeFolder(std::string const& folder, Session& session)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        session.reportError(folder, error.message());
    return !error;
}

/// Makes the folder of each target; whether there is a new one. A file whose folder cannot be made
/// fails later by itself.
bool createFolders(std::vector<FoundFile> const& files, std::string const& folder)
{
    bool isAnyNew = false;
    std::error_code ignored;
    fs::path last;
    for (FoundFile const& file : files) {
        fs::path const parent = fs::path(folder + '/' + file.relativePath).parent_path();
        if (parent != last)
            isAnyNew |= fs::create_directories(parent, ignored);
        last = parent;
    }
    return isAnyNew;
}

std::string targetOf(FoundFile const& file, Options const& options)
{
    return options.folder + '/' + file.relativePath;
}

/// Where a file goes if it is converted. Where that belongs to another file, as of a.mov beside
/// a.mp4, it keeps its extension and gets one more, or as many as it takes.
std::string claimedForConversion(std::string const& target, Targets& targets)
{
    std::string converted = convertedTarget(target);
    std::string longer = target;
    while (converted != target && !targets.claim(converted).empty()) {
        longer += ".m4a";
        converted = longer;
    }
    return converted;
}

/// The files with their targets, which are claimed in the order of the files, whoever is done
/// first.
std::vector<PreparationJob> jobsFor(
    std::vector<FoundFile> const& files, Options const& options, Targets& targets)
{
    std::vector<PreparationJob> jobs;
    for (FoundFile const& file : files) {
        std::string const target = targetOf(file, options);
        jobs.push_back({ .source = file.path,
            .target = target,
            .convertedTarget = target,
            .refusal = targets.claim(target) });
    }
    for (PreparationJob& job : jobs) {
        if (job.refusal.empty())
            job.convertedTarget = claimedForConversion(job.target, targets);
    }
    return jobs;
}

PreparationOutcome failedFile(PreparationJob const& job, std::uint64_t size, std::string error)
{
    return { .source = job.source,
        .target = job.target,
        .steps = {},
        .sizeBefore = size,
        .predictedSize = size,
        .size = 0,
        .isAudio = false,
        .error = std::move(error),
        .remark = {} };
}

/// Prepares a file. Where memory runs out, this file fails and no other.
PreparationOutcome outcomeOf(PreparationJob const& job, std::uint64_t size,
    PreparationOptions const& options, KXPlatform::Ref const& platform)
{
    if (!job.refusal.empty())
        return failedFile(job, size, job.refusal);
    try {
        return preparedFile(job, options, platform);
    } catch (std::bad_alloc const&) {
        return failedFile(job, size, "there is not enough memory");
    }
}

/// Puts the files of `outcomes` in their places.
void placeFiles(std::map<std::size_t, PreparationOutcome>& outcomes, Targets& targets)
{
    std::vector<Targets::Arrival> arrivals;
    for (auto const& [item, outcome] : outcomes) {
        if (outcome.file)
            arrivals.push_back({ *outcome.file });
    }
    targets.place(arrivals);
    auto arrival = arrivals.begin();
    for (auto& [item, outcome] : outcomes) {
        if (outcome.file)
            outcome.error = std::move((arrival++)->error);
        outcome.file.reset();
    }
}

void prepare(Options const& options, Session& session)
{
    auto const platform = KXPlatform::shared();
    if (!makeFolder(options.folder, session))
        return;
    auto const files = foundFiles(textsOf(*options.paths), options.folder,
        options.followsLinks ? Links::all : Links::toFilesWithin, session);
    Targets targets(options.folder);
    if (createFolders(files, options.folder)) {
        if (std::string const error = targets.sync(); !error.empty())
            return session.reportError(options.folder, error);
    }
    for (FoundFile const& file : files)
        targets.protect(file.path);
    Playlist playlist(options.folder, options.playlist);
    playlist.claim(targets, session);
    auto const jobs = jobsFor(files, options, targets);
    FolderPictures folderPictures;
    std::mutex largeFiles;
    PreparationOptions const preparation { .insertsCovers = !options.leavesCovers,
        .cleans = !options.leavesUncleaned,
        .converts = !options.leavesUnconverted,
        .folderPictures = folderPictures,
        .largeFiles = largeFiles };
    PreparationReport report(files, options.folder, options.json, session);
    workInOrder(
        files.size(), options.jobs,
        [&](std::size_t i) {
            auto outcome = outcomeOf(jobs[i], files[i].size, preparation, platform);
            report.advance(outcome);
            return outcome;
        },
        [&](auto& outcomes) { placeFiles(outcomes, targets); },
        [&](std::size_t, PreparationOutcome const& outcome) {
            report.add(outcome);
            playlist.add(outcome);
        });
    playlist.write(targets, session);
    report.finish();
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    addText(command, "--to", options->folder, "Folder to write the prepared files to")
        ->type_name("FOLDER")
        ->check(problemOfFolderName);
    addOptionalText(command, "--playlist", options->playlist, "Also write a playlist of this name")
        ->type_name("NAME")
        ->check(problemOfPlaylistName);
    command.add_flag("--no-covers", options->leavesCovers, "Insert no album covers");
    command.add_flag("--no-clean", options->leavesUncleaned, "Clean no phone videos");
    command.add_flag("--no-convert", options->leavesUnconverted, "Convert no lossless audio");
    command.add_flag("--follow-links", options->followsLinks, "Follow links that lead elsewhere");
    command.add_option("-j,--jobs", options->jobs, "Files to work on at once (default: cores)")
        ->type_name("N")
        ->check(CLI::Range(1u, 256u).description(""));
    command.add_flag("--json", options->json, "Print a JSON object for each file");
    options->paths = addTexts(command, "PATH", "Files and folders to prepare");
    command.callback([options, &session] {
        options->folder = folderFromArgument(std::move(options->folder));
        prepare(*options, session);
    });
}

}

Command const prepareCommand { .name = "prepare",
    .description = "Make music and videos ready for a phone, into a folder",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
