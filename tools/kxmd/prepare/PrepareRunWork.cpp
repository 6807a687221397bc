#include "PrepareRun.h"

#include "Sound.h"
#include "tools/kxmd/OrderedWork.h"
#include "tools/kxmd/Session.h"
#include "tools/kxmd/TargetFolder.h"

#include <kxmd/platform/KXMediaProbe.h>
#include <kxmd/version.h>

#include <cstdio>
#include <filesystem>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

using State = PlannedFile::State;
using Action = PreparationAction;

PreparationOutcome failedFile(PlannedFile const& file, std::string error)
{
    return { .source = file.job.source,
        .target = file.job.target,
        .sizeBefore = file.size,
        .predictedSize = file.size,
        .error = std::move(error) };
}

/// The record of what an earlier run made of a file, wherever that lies now.
ManifestEntry formerEntryOf(PlannedFile const& file)
{
    ManifestEntry entry = *file.former;
    entry.source = file.source;
    return entry;
}

}

/// Gives the file that is there already its new name. False when that cannot be done.
bool PrepareRun::rename(PlannedFile& file)
{
    std::string const from = _options.folder + '/' + file.former->target;
    std::string const& to = file.newTarget;
    std::error_code error;
    if (isDryRun() || std::filesystem::exists(to, error))
        return isDryRun();
    std::filesystem::create_directories(std::filesystem::path(to).parent_path(), error);
    if (::rename(from.c_str(), to.c_str()) != 0)
        return false;
    removeEmptyFoldersAbove(from, _options.folder);
    _manifest.remove(file.former->target);
    ManifestEntry entry = formerEntryOf(file);
    entry.target = to.substr(_options.folder.size() + 1);
    file.former = std::make_shared<ManifestEntry const>(entry);
    _manifest.add(std::move(entry));
    return true;
}

/// Prepares a file. Where memory runs out, this file fails and no other.
PreparationOutcome PrepareRun::outcomeFor(
    PlannedFile const& file, PreparationOptions const& options)
{
    if (!file.job.refusal.empty())
        return failedFile(file, file.job.refusal);
    try {
        return preparedFile(file.job, options, _folderPictures, _platform);
    } catch (std::bad_alloc const&) {
        return failedFile(file, "there is not enough memory");
    }
}

PreparationOutcome PrepareRun::outcomeOfKept(
    PlannedFile const& file, PreparationAction action) const
{
    return { .source = file.job.source,
        .target
        = action == Action::renamed ? file.newTarget : _options.folder + '/' + file.former->target,
        .action = action,
        .sizeBefore = file.size,
        .predictedSize = file.former->targetSize,
        .size = file.former->targetSize };
}

void PrepareRun::reportManifestError(std::string const& error)
{
    if (!error.empty())
        _session.reportError(_manifest.path(), error);
}

/// Puts files in their places, and records those that are there.
void PrepareRun::place(std::vector<std::size_t> const& items, Outcomes& outcomes)
{
    placeFilesOf(outcomes, *_targets);
    for (auto& [i, outcome] : outcomes) {
        if (!outcome.isDone())
            outcome.action = Action::failed;
        else
            record(_plan->files()[items[i]], outcome);
    }
    reportManifestError(_manifest.write());
}

void PrepareRun::record(PlannedFile const& file, PreparationOutcome const& outcome)
{
    if (outcome.action == Action::unchanged)
        return recordTime(file, outcome);
    std::string const target = outcome.target.substr(_options.folder.size() + 1);
    removeTwin(file, target);
    _manifest.add({ .source = file.source,
        .size = outcome.sizeBefore,
        .modified = outcome.modified,
        .inode = outcome.inode,
        .checksum = outcome.checksum,
        .cover = outcome.cover,
        .album = outcome.cover ? outcome.album : "",
        .options = _options.preparation.digestFor(outcome.kind),
        .version = KXVersion(),
        .target = target,
        .targetSize = outcome.size,
        .song = outcome.song });
}

/// So that a file whose contents are the same is known by its time as well.
void PrepareRun::recordTime(PlannedFile const& file, PreparationOutcome const& outcome)
{
    ManifestEntry entry = formerEntryOf(file);
    entry.modified = outcome.modified;
    entry.inode = outcome.inode;
    _manifest.add(std::move(entry));
}

/// Removes what an earlier run made of the same file under another name.
void PrepareRun::removeTwin(PlannedFile const& file, std::string const& target)
{
    if (!file.former || file.former->target == target)
        return;
    std::string const twin = _options.folder + '/' + file.former->target;
    bool const isOwn = twin == file.job.target || twin == file.job.convertedTarget;
    if ((!isOwn && _targets->isClaimed(twin)) || !_targets->reasonAgainst(twin).empty())
        return;
    std::error_code ignored;
    bool const isSame = std::filesystem::equivalent(twin, _options.folder + '/' + target, ignored);
    if (!isSame && reasonAgainstRemoving(*file.former, _options.folder).empty())
        removePrepared(*file.former, _options.folder);
    _manifest.remove(file.former->target);
}

void PrepareRun::noteSong(
    std::size_t item, std::string const& target, std::optional<PreparedSong> const& song)
{
    if (song && _options.playlists.areWanted())
        _songs.emplace(item, std::pair(target, *song));
}

void PrepareRun::reportKeptBefore(std::size_t item)
{
    for (; _reported < item; ++_reported) {
        PlannedFile const& file = _plan->files()[_reported];
        auto const kept = outcomeOfKept(
            file, file.state == State::misnamed ? Action::renamed : Action::unchanged);
        _report->add(kept);
        noteSong(_reported, kept.target, file.former->song);
    }
}

void PrepareRun::take(std::size_t item, PreparationOutcome const& outcome)
{
    reportKeptBefore(item);
    _reported = item + 1;
    PlannedFile const& file = _plan->files()[item];
    if (outcome.action == Action::unchanged) { // Told by its contents.
        auto const kept = outcomeOfKept(file, Action::unchanged);
        _report->add(kept);
        return noteSong(item, kept.target, file.former->song);
    }
    _report->add(outcome);
    if (isDryRun() && outcome.isDone())
        _needed += _space->taken(outcome.size);
    if (outcome.isDone())
        noteSong(item, outcome.target, outcome.song);
}

void PrepareRun::work()
{
    for (PlannedFile& file : _plan->files()) {
        if (file.state == State::misnamed && !rename(file))
            file.state = State::missing;
        bool const hasMoved = file.former && file.former->source != file.source;
        if (file.state == State::unchanged && hasMoved && !isDryRun())
            _manifest.add(formerEntryOf(file));
    }
    auto const items = _plan->filesIn(State::missing);
    std::vector<std::string> paths;
    paths.reserve(items.size());
    for (std::size_t const item : items)
        paths.push_back(_plan->files()[item].job.target);
    if (!isDryRun() && !makeFoldersOf(paths, _options.folder, *_targets, _session))
        return;
    workInOrder(
        items.size(), _options.jobs,
        [&](std::size_t i) {
            auto outcome = outcomeFor(_plan->files()[items[i]], _options.preparation);
            _report->advance(outcome);
            return outcome;
        },
        [&](Outcomes& outcomes) {
            if (!isDryRun())
                place(items, outcomes);
        },
        [&](std::size_t i, PreparationOutcome const& outcome) { take(items[i], outcome); });
    reportKeptBefore(_plan->files().size());
}

// Playlists.

/// Completes the songs that an earlier run prepared without a playlist.
void PrepareRun::probeKeptSongs()
{
    std::vector<std::size_t> items;
    for (auto const& [item, song] : _songs) {
        if (!song.second.isProbed)
            items.push_back(item);
    }
    auto const probe = [&](std::size_t i) {
        return KXMediaProbe::probeWithSourcePath(_plan->files()[items[i]].job.source, _platform);
    };
    auto const take = [&](std::size_t i, std::optional<KXMediaProbe> const& probed) {
        auto& [target, song] = _songs.at(items[i]);
        auto const known = _manifest.entryForTarget(target.substr(_options.folder.size() + 1));
        if (!probed || !known)
            return;
        addProbeTo(song, *probed);
        ManifestEntry entry = *known;
        entry.song = song;
        _manifest.add(std::move(entry));
    };
    workInOrder(
        items.size(), _options.jobs, probe, [](auto&) {}, take);
}

void PrepareRun::writePlaylists()
{
    if (!_options.playlists.areWanted())
        return;
    probeKeptSongs();
    for (auto const& [item, song] : _songs)
        _playlists.add(_plan->files()[item].job.source, song.first, song.second);
    for (Playlists::Written const& list : _playlists.write(*_targets, _session)) {
        ManifestEntry entry;
        entry.isPlaylist = true;
        entry.target = list.path.substr(_options.folder.size() + 1);
        entry.targetSize = list.size;
        _manifest.add(std::move(entry));
    }
}
