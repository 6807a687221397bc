#include "PrepareRun.h"

#include "NameFilter.h"
#include "NameRules.h"
#include "TargetNames.h"
#include "shared/PathWithoutLinks.h"
#include "tools/kxmd/Desktop.h"
#include "tools/kxmd/OrderedWork.h"
#include "tools/kxmd/OutputFile.h"
#include "tools/kxmd/Session.h"
#include "tools/kxmd/TargetFolder.h"
#include "tools/kxmd/sheet/Sheet.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <iterator>
#include <string_view>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

using State = PlannedFile::State;
using Action = PreparationAction;

/// A folder that no other run prepares for meanwhile.
class FolderLock {
public:
    explicit FolderLock(std::string const& folder)
        : _folder(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
        , _isTaken(_folder >= 0 && ::flock(_folder, LOCK_EX | LOCK_NB) != 0
              && errno == EWOULDBLOCK) // Other file systems know no locks.
    {
    }
    ~FolderLock()
    {
        if (_folder >= 0)
            ::close(_folder);
    }
    FolderLock(FolderLock const&) = delete;
    FolderLock& operator=(FolderLock const&) = delete;

    bool isTaken() const { return _isTaken; }

private:
    int const _folder;
    bool const _isTaken;
};

}

PrepareRun::PrepareRun(PrepareOptions const& options, Session& session)
    : _options(options)
    , _session(session)
    , _platform(machine())
    , _folderPictures(_platform)
    , _manifest(options.folder)
    , _playlists(options.folder, options.playlists)
{
}

void PrepareRun::run()
{
    if (!isDryRun() && !makeTargetFolder(_options.folder, _session))
        return;
    _space.emplace(_options.folder);
    if (!_options.page.empty() && !canWriteOutputFile(_options.page, {}, _session))
        return; // Found out before the work.
    FolderLock const lock(_options.folder);
    if (lock.isTaken())
        return _session.reportError(_options.folder, "is being prepared by another run");
    if (!begin() || !hasPlaceForPage())
        return;
    planRemoval();
    if (!isDryRun() && !_options.ignoresSpace && !hasSpace())
        return;
    auto const toWorkOn = _plan->filesIn(State::missing);
    if (!toWorkOn.empty() && !isWritableFolder(_options.folder, _session, isDryRun())
        && !isDryRun())
        return; // Found out before hours of work.
    ProgressBar::Amount amount { .items = toWorkOn.size() };
    for (std::size_t const item : toWorkOn)
        amount.bytes += _plan->files()[item].size;
    _report.emplace(_options.folder,
        PreparationReport::Style {
            .isJSON = _options.isJSON, .isDryRun = isDryRun(), .hasPage = !_options.page.empty() },
        amount, _session);
    removeFiles();
    work();
    PreparationReport::End end { .skipped = _found.skipped };
    if (isDryRun()) {
        end.needed = _needed;
        end.available = _space->available();
    } else {
        writePlaylists();
        reportManifestError(_manifest.finish());
    }
    _report->finish(end);
    if (!_options.page.empty())
        writeSheet(_report->pageEntries(), _options.page, _options.jobs, _session);
}

// The plan.

bool PrepareRun::begin()
{
    // At once, on a thread of its own if there is one.
    auto reading = std::async([this] { return _manifest.read(); });
    findFiles();
    if (std::string const error = reading.get(); !error.empty()) {
        _session.reportError(_manifest.path(), "cannot be read: " + error);
        return false;
    }
    makePlan();
    return true;
}

void PrepareRun::findFiles()
{
    NameFilter filter(_options.excluded, _options.included);
    if (!_options.takesAll)
        filter.leaveOutClutter();
    auto const isWanted = [&filter](std::string_view path) {
        // A source may once have been a target.
        return !Manifest::isOurs(path) && filter.isWanted(path);
    };
    _found = foundFiles(_options.paths,
        { .leftOut = _options.folder,
            .links = _options.followsLinks ? Links::all : Links::toFilesWithin,
            .keepsNames = true,
            .isWanted = isWanted,
            .sawFolder = [this](auto const& folder,
                             auto const& names) { _folderPictures.noteFolder(folder, names); } },
        _session);
    if (!_options.page.empty())
        leaveOutEarlierPage(_found.files, _options.page);
}

void PrepareRun::readNameRules()
{
    if (_manifest.nameRules() || _found.files.empty())
        return;
    if (auto const rules
        = isDryRun() ? nameRulesByKindOf(_options.folder) : nameRulesOf(_options.folder))
        _manifest.setNameRules(*rules);
    else if (isDryRun() && mayBeRefused())
        _session.reportRemark(_options.folder,
            "its file system may refuse names that are shown here; only a run that writes finds "
            "out");
}

/// Whether some file system would not take all of the names as they are.
bool PrepareRun::mayBeRefused() const
{
    TargetNames names(nameRulesOfCards());
    return std::ranges::any_of(_found.files, [&names](FoundFile const& file) {
        return names.pathFor(file.relativePath) != file.relativePath;
    });
}

void PrepareRun::makePlan()
{
    readNameRules();
    NameRules const rules = _manifest.nameRules().value_or(NameRules());
    _targets = std::make_unique<Targets>(_options.folder);
    if (!rules.tellsCase)
        _targets->ignoreCase();
    for (FoundFile const& file : _found.files)
        _targets->protect(file.identity);
    static_cast<void>(_targets->claim(_manifest.path())); // Nobody can have it before.
    _playlists.claim(rules, *_targets, _session);
    TargetNames names(rules);
    _plan.emplace(_found.files, _options.folder, _manifest, _options.preparation, _folderPictures,
        names, *_targets);
}

/// Whether the page replaces no file that is prepared, now or earlier; reports why not.
bool PrepareRun::hasPlaceForPage()
{
    if (_options.page.empty())
        return true;
    auto const page = pathWithoutLinks(_options.page).value_or(_options.page);
    auto const inFolder = _options.folder + '/';
    auto const problem = [&]() -> char const* {
        if (!_targets->reasonAgainst(page).empty())
            return "is one of the files to prepare";
        if (_targets->isClaimed(page))
            return "is where another file goes";
        if (page.starts_with(inFolder) && _manifest.entryForTarget(page.substr(inFolder.size())))
            return "is a file that was prepared earlier";
        return nullptr;
    }();
    if (problem)
        _session.reportError(_options.page, problem);
    return !problem;
}

// Removal.

void PrepareRun::planRemoval()
{
    if (!_options.removes && !_options.removesMany)
        return;
    if (!_found.isWhole)
        return _session.reportError(_options.folder,
            "nothing is removed, since a source is missing, empty or cannot be read");
    RemovalSources sources;
    for (std::string const& path : _options.paths)
        sources.roots.push_back(absolutePath(path));
    for (std::string const& path : _found.unseen)
        sources.unseen.push_back(absolutePath(path));
    for (PlannedFile const& file : _plan->files()) {
        sources.kept.insert(file.job.target.substr(_options.folder.size() + 1));
        if (file.former)
            sources.kept.insert(file.former->target);
    }
    auto const folders = _options.playlists.areWanted() ? foldersWithMusic() : Folders();
    sources.isWritten = [this, &folders](std::string const& path) {
        return _playlists.areWrittenTo(path, folders)
            || (path != _playlists.path() && _targets->isClaimed(path));
    };
    _removal = removalFrom(_manifest, _options.folder, sources, *_targets);
    if (_options.removesMany || !_removal.areMany()) {
        std::ranges::copy(_removal.playlists, std::back_inserter(_removal.entries));
        return;
    }
    _session.reportError(_options.folder,
        "nothing is removed, since " + std::to_string(_removal.entries.size()) + " of "
            + std::to_string(_removal.recorded)
            + " files would be; use --delete-many to remove that many");
    _removal.entries.clear();
}

/// The folders of targets that may be songs, as far as it is known beforehand.
PrepareRun::Folders PrepareRun::foldersWithMusic() const
{
    Folders folders;
    for (PlannedFile const& file : _plan->files()) {
        if (!file.isUpToDate || file.former->song)
            folders.emplace(KXPathByDeletingLastPathComponent(file.job.target));
    }
    return folders;
}

/// First of all, so that there is room for what comes.
void PrepareRun::removeFiles()
{
    for (ManifestEntry const& entry : _removal.entries) {
        PreparationOutcome outcome { .source = entry.source,
            .target = _options.folder + '/' + entry.target,
            .action = Action::deleted,
            .sizeBefore = entry.size,
            .size = entry.targetSize,
            .error = reasonAgainstRemoving(entry, _options.folder),
            .isRemoval = true };
        bool const isOurs = outcome.isDone();
        if (isOurs && !isDryRun())
            outcome.error = removePrepared(entry, _options.folder);
        if (!outcome.isDone())
            outcome.action = Action::failed;
        if ((!isOurs || outcome.isDone()) && !isDryRun())
            _manifest.remove(entry.target); // A file that was changed belongs to somebody else.
        _report->add(outcome);
    }
    if (!isDryRun())
        reportManifestError(_manifest.write());
}

// Space.

/// More than is needed, by sizes alone.
std::uint64_t PrepareRun::boundOfSpace() const
{
    constexpr std::uint64_t bytesOfPixel = 3; // A JPEG file takes fewer.
    std::uint64_t const side = _options.preparation.coverSize;
    std::uint64_t const largestCover = side * side * bytesOfPixel;
    std::uint64_t bound = 0;
    for (PlannedFile const& file : _plan->files()) {
        if (file.state == State::missing)
            bound += _space->taken(file.size + largestCover);
    }
    return bound;
}

/// As a dry run finds it out. A file that is replaced is there until the new one is, so it frees
/// nothing.
std::uint64_t PrepareRun::predictedSpace()
{
    auto const items = _plan->filesIn(State::missing);
    auto options = _options.preparation;
    options.isDryRun = true;
    std::uint64_t bytes = 0;
    workInOrder(
        items.size(), _options.jobs,
        [&](std::size_t i) { return outcomeFor(_plan->files()[items[i]], options); },
        [](Outcomes&) {},
        [&](std::size_t, PreparationOutcome const& outcome) {
            if (outcome.action != Action::unchanged && outcome.isDone())
                bytes += _space->taken(outcome.size);
        });
    return bytes;
}

bool PrepareRun::hasSpace()
{
    auto const available = _space->available();
    if (!available || boundOfSpace() <= *available)
        return true;
    std::uint64_t room = *available;
    for (ManifestEntry const& entry : _removal.entries)
        room += entry.targetSize;
    std::uint64_t const needed = predictedSpace();
    if (needed <= room)
        return true;
    _session.reportError(_options.folder,
        "lacks " + std::to_string(needed - room) + " bytes: " + std::to_string(needed)
            + " are needed, " + std::to_string(room)
            + " are free; use --anyway to start all the same");
    return false;
}
