// kxmd thumbnail: the pictures that stand for files.

#include "Commands.h"
#include "Desktop.h"
#include "FileWalk.h"
#include "OrderedWork.h"
#include "PictureOutput.h"
#include "ProgressBar.h"
#include "Session.h"
#include "TaggedFile.h"
#include "TargetFolder.h"
#include "Targets.h"
#include "Usage.h"
#include "shared/AtomicFile.h"

#include <kxmd/base/KXAbstractData.h>
#include <kxmd/base/KXPath.h>
#include <kxmd/core/KXMDFileMeta.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <utility>

namespace {

struct Options {
    CLI::Option* paths { nullptr };
    std::string output;
    std::string folder;
    KXSize size;
    unsigned jobs { std::max(1u, std::thread::hardware_concurrency()) };
    PictureFormat format { PictureFormat::byName };
    bool keepsShape { false };
    bool entersFolders { false };
};

/// What became of one of many files.
struct Outcome {
    std::unique_ptr<AtomicFile> file; ///< Written, but not in its place yet.
    std::string error; ///< Why there is none.
    bool isUnreadable { false };
    std::error_code readError {};
};

KXImage::Ref thumbnailOf(
    KXDCFile const& file, KXMDThumbnailController& controller, Options const& options)
{
    return options.keepsShape
        ? controller.platform()->thumbnailService->imageForPath(file.sourcePath(), options.size)
        : controller.thumbnailForFile(file, options.size);
}

void writeThumbnail(std::string const& path, Options const& options, Session& session)
{
    auto const file = taggedFile(path, session);
    if (!file)
        return;
    auto const& controller = thumbnailController();
    writePicture(thumbnailOf(*file, *controller, options), options.output, { path }, session,
        options.format);
}

/// Makes the thumbnails of many files, on several threads.
class Thumbnails {
public:
    Thumbnails(std::vector<FoundFile> files, Options const& options, Session& session)
        : _files(std::move(files))
        , _options(options)
        , _session(session)
        , _targets(options.folder)
        , _progress(session.standardError(), "files", { .items = _files.size() })
    {
    }

    void make()
    {
        std::vector<std::string> targets;
        for (FoundFile const& file : _files) {
            targets.push_back(targetOf(file));
            _targets.protect(file.identity);
        }
        if (!makeFoldersOf(targets, _options.folder, _targets, _session))
            return;
        for (FoundFile const& file : _files)
            _refusals.push_back(isRegularFile(file.path) ? refusalOf(targetOf(file)) : "");
        workInOrder(
            _files.size(), _options.jobs, [this](std::size_t i) { return outcomeOf(i); },
            [this](auto& outcomes) { placeFilesOf(outcomes, _targets); },
            [this](std::size_t i, Outcome const& outcome) { report(_files[i].path, outcome); });
    }

private:
    /// The name has the file's own extension, so that a.jpg and a.mp3 do not meet.
    std::string targetOf(FoundFile const& file) const
    {
        return _options.folder + '/' + file.relativePath + ".png";
    }

    std::string refusalOf(std::string const& target)
    {
        std::string const refusal = _targets.claim(target);
        return refusal.empty() ? _targets.reasonAgainst(target) : refusal;
    }

    Outcome outcomeOf(std::size_t item)
    {
        Outcome outcome;
        try {
            outcome.error = _refusals[item];
            if (outcome.error.empty())
                makeThumbnail(_files[item], outcome);
        } catch (std::bad_alloc const&) {
            outcome.file.reset();
            outcome.error = "lacks memory"; // So short that it takes none.
        }
        _progress.advanceBy({ .items = 1 });
        return outcome;
    }

    void makeThumbnail(FoundFile const& file, Outcome& outcome) const
    {
        auto const data = KXAbstractData::abstractDataWithPath(file.path);
        outcome.isUnreadable = !data;
        if (!data)
            return;
        outcome.readError = KXMDFileMeta::fileMetaWithAnyAbstractData(*data)->readError();
        if (outcome.readError)
            return;
        auto const image = thumbnailOf(KXDCSimpleFile(file.path), *_controller, _options);
        std::string const target = targetOf(file);
        KXData const encoded = image ? encodedPicture(*image, target) : KXData();
        if (!encoded.length()) {
            outcome.error = image ? "its picture cannot be encoded" : nothingToShow;
            return;
        }
        struct stat status { };
        mode_t const permissions = ::stat(file.path.c_str(), &status) == 0 ? status.st_mode : 0;
        outcome.file = std::make_unique<AtomicFile>(target);
        if (outcome.file->open(permissions & 0666) && outcome.file->write(encoded.bytes()))
            return;
        outcome.error = outcome.file->errorWithPath();
        outcome.file.reset();
    }

    static bool isRegularFile(std::string const& path)
    {
        std::error_code ignored;
        return std::filesystem::is_regular_file(path, ignored);
    }

    void report(std::string const& path, Outcome const& outcome)
    {
        if (outcome.isUnreadable)
            _session.reportUnreadable(path);
        else if (!_session.reportReadError(path, outcome.readError) && !outcome.error.empty())
            _session.reportError(path, outcome.error);
    }

    std::vector<FoundFile> const _files;
    Options const& _options;
    Session& _session;
    Targets _targets;
    std::vector<std::string> _refusals; ///< Of the files' targets; empty where there is none.
    ProgressBar _progress;
    /// Without a cache: no picture is asked for twice.
    KXMDThumbnailController::Ref const _controller
        = KXMDThumbnailController::createWithPlatform(machine(), 0);
};

/// The files as they are named, folders too: those fail by themselves.
std::vector<FoundFile> namedFiles(std::vector<std::string> const& paths)
{
    std::vector<FoundFile> files;
    files.reserve(paths.size());
    for (std::string const& path : paths) {
        FoundFile& file = files.emplace_back();
        file.path = path;
        file.relativePath = KXLastPathComponent(path);
        struct stat status;
        if (::stat(path.c_str(), &status) == 0)
            file.identity = identityOf(status);
    }
    return files;
}

void writeThumbnails(Options const& options, Session& session)
{
    auto const paths = textsOf(*options.paths);
    if (!makeTargetFolder(options.folder, session) || !isWritableFolder(options.folder, session))
        return;
    auto files = options.entersFolders
        ? foundFiles(paths, { .leftOut = options.folder }, session).files
        : namedFiles(paths);
    Thumbnails(std::move(files), options, session).make();
}

/// One file goes to a file, many go to a folder.
void checkUsage(Options const& options)
{
    if (options.output.empty() && options.folder.empty())
        throw CLI::RequiredError("--output or --to");
    if (!options.output.empty() && (options.paths->count() > 1 || options.entersFolders))
        throw CLI::ValidationError("--output", "takes one file; --to takes many");
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    addSize(command, options->size);
    command.add_flag(
        "--fit", options->keepsShape, "Keep the picture's shape within the size, cut nothing off");
    auto* const output = addPictureOutput(command, options->output, options->format);
    addTargetFolder(command, options->folder, "Write a PNG for each file to this folder")
        ->excludes(output);
    command.add_flag("-r,--recursive", options->entersFolders, "Show all files in folders, too");
    addJobs(command, options->jobs);
    options->paths = addFiles(command, "Files to show");
    command.callback([options, &session] {
        checkUsage(*options);
        if (options->folder.empty())
            writeThumbnail(textsOf(*options->paths).front(), *options, session);
        else
            writeThumbnails(*options, session);
    });
}

}

Command const thumbnailCommand { .name = "thumbnail",
    .description = "Write the pictures that stand for files",
    .group = pictureGroup,
    .examples = R"(    kxmd thumbnail film.mp4 -s 256x256 -o film.png
    kxmd thumbnail -r ~/Pictures -s 256x256 --fit --to thumbnails)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
