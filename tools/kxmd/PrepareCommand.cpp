// kxmd prepare: makes a collection ready for a phone.

#include "Commands.h"
#include "FileWalk.h"
#include "OrderedWork.h"
#include "Playlist.h"
#include "Preparation.h"
#include "PreparationReport.h"
#include "Session.h"
#include "TargetFolder.h"
#include "Targets.h"
#include "TemporaryFolder.h"
#include "Usage.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace {

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

void prepare(Options const& options, Session& session)
{
    auto const platform = KXPlatform::shared();
    if (!makeTargetFolder(options.folder, session))
        return;
    auto const files = foundFiles(textsOf(*options.paths), options.folder,
        options.followsLinks ? Links::all : Links::toFilesWithin, session);
    Targets targets(options.folder);
    if (!makeFoldersOfTargets(files, options.folder, targets, session))
        return;
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
        [&](auto& outcomes) { placeFilesOf(outcomes, targets); },
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
    addTargetFolder(command, options->folder, "Folder to write the prepared files to")->required();
    addOptionalText(command, "--playlist", options->playlist, "Also write a playlist of this name")
        ->type_name("NAME")
        ->check(problemOfPlaylistName);
    command.add_flag("--no-covers", options->leavesCovers, "Insert no album covers");
    command.add_flag("--no-clean", options->leavesUncleaned, "Clean no phone videos");
    command.add_flag("--no-convert", options->leavesUnconverted, "Convert no lossless audio");
    command.add_flag("--follow-links", options->followsLinks, "Follow links that lead elsewhere");
    addJobs(command, options->jobs);
    command.add_flag("--json", options->json, "Print a JSON object for each file");
    options->paths = addTexts(command, "PATH", "Files and folders to prepare");
    command.callback([options, &session] { prepare(*options, session); });
}

}

Command const prepareCommand { .name = "prepare",
    .description = "Make music and videos ready for a phone, into a folder",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
