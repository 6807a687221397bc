#include "PreparationPlan.h"

#include "GoneFile.h"

#include <kxmd/base/KXPath.h>

#include <filesystem>
#include <functional>
#include <future>
#include <span>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace {

namespace fs = std::filesystem;

bool hasSize(std::string const& path, std::uint64_t size)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
        && static_cast<std::uint64_t>(status.st_size) == size;
}

/// Where a file goes if it is converted. Where that belongs to another file, as of a.mov beside
/// a.mp4, it keeps its extension and gets one more, or as many as it takes. The disk is only asked
/// about the targets of new files.
std::string claimedForConversion(std::string const& target, bool isNew, Targets& targets)
{
    std::string converted = convertedTarget(target);
    if (converted == target)
        return converted;
    std::string longer = target;
    auto const isFree = [&targets, isNew](std::string const& path) {
        return targets.claim(path).empty() && (!isNew || targets.reasonAgainst(path).empty());
    };
    while (!isFree(converted)) {
        longer += convertedExtension;
        converted = longer;
    }
    return converted;
}

}

std::string absolutePath(std::string const& path)
{
    static std::string const here = fs::current_path().string() + '/'; // The command stays there.
    std::string const whole
        = path.starts_with('/') ? path : here + path.substr(path.starts_with("./") ? 2 : 0);
    bool const isPlain
        = whole.find("//") == std::string::npos && whole.find("/.") == std::string::npos;
    return isPlain ? whole : fs::path(whole).lexically_normal().string();
}

PreparationPlan::PreparationPlan(std::vector<FoundFile> const& files, std::string const& folder,
    Manifest const& manifest, PreparationOptions const& options, FolderPictures& folderPictures,
    TargetNames& names, Targets& targets)
    : _folder(folder)
    , _manifest(manifest)
    , _options(options)
    , _folderPictures(folderPictures)
    , _names(names)
    , _targets(targets)
    , _files(files.size())
{
    for (std::size_t i = 0; i < files.size(); ++i) {
        _files[i].job.source = files[i].path;
        _files[i].source = absolutePath(files[i].path);
        _files[i].size = files[i].size;
        _files[i].former = formerOf(files[i], _files[i].source);
    }
    for (bool const isKnown : { true, false }) {
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (static_cast<bool>(_files[i].former) == isKnown)
                giveTarget(files[i], _files[i]);
        }
    }
    for (PlannedFile& planned : _files) {
        if (planned.job.refusal.empty())
            planned.job.convertedTarget
                = claimedForConversion(planned.job.target, !planned.former, _targets);
    }
    lookForTargets(files);
    for (std::size_t i = 0; i < files.size(); ++i) {
        _files[i].state = stateOf(_files[i]);
        if (_files[i].state != PlannedFile::State::unchanged && _files[i].job.refusal.empty())
            _files[i].job.refusal = _targets.reasonAgainst(_files[i].job.target);
    }
}

/// The record of a file, also of one that lay elsewhere then and has not changed since.
Manifest::Entry PreparationPlan::formerOf(FoundFile const& file, std::string const& source) const
{
    if (auto entry = _manifest.entryForSource(source, file.relativePath))
        return entry;
    auto const inode = static_cast<std::int64_t>(file.identity.second);
    auto moved = _manifest.entryForMoved(file.size, file.modified, inode);
    return moved && isGone(moved->source) ? moved : nullptr;
}

void PreparationPlan::giveTarget(FoundFile const& file, PlannedFile& planned)
{
    std::string_view const former = planned.former ? planned.former->target : std::string_view();
    planned.job.target = _folder + '/' + _names.pathFor(file.relativePath, former);
    planned.job.convertedTarget = planned.job.target;
    planned.job.refusal = _targets.claim(planned.job.target);
}

/// Looks which files that are as recorded have targets that are. A phone takes its time to tell,
/// so two are asked about at once.
void PreparationPlan::lookForTargets(std::vector<FoundFile> const& files)
{
    for (std::size_t i = 0; i < files.size(); ++i)
        _files[i].isUpToDate = _files[i].former && isAsRecorded(files[i], _files[i]);
    auto const look = [](std::span<PlannedFile> some, std::string const& folder) {
        for (PlannedFile& file : some)
            file.isUpToDate = file.isUpToDate
                && hasSize(folder + '/' + file.former->target, file.former->targetSize);
    };
    std::span<PlannedFile> const all = _files;
    auto half = std::async(look, all.first(all.size() / 2), std::cref(_folder));
    look(all.subspan(all.size() / 2), _folder);
    half.get();
}

PlannedFile::State PreparationPlan::stateOf(PlannedFile& planned)
{
    using State = PlannedFile::State;
    auto const& former = planned.former;
    if (!planned.job.refusal.empty() || !planned.isUpToDate)
        return State::missing;
    std::string const target = _folder + '/' + former->target;
    bool const isInPlace = target == planned.job.target || target == planned.job.convertedTarget;
    if (!isInPlace && (_targets.isClaimed(target) || !_targets.reasonAgainst(target).empty()))
        return State::missing; // It is to become another file, or is read as one.
    if (_options.sumsUp) { // Told when the file is read.
        planned.job.knownChecksum = isInPlace ? former->checksum : "";
        return State::missing;
    }
    if (isInPlace)
        return State::unchanged;
    bool const wasConverted
        = target.ends_with(convertedExtension) && !planned.job.target.ends_with(convertedExtension);
    planned.newTarget = wasConverted ? planned.job.convertedTarget : planned.job.target;
    return State::misnamed;
}

bool PreparationPlan::isAsRecorded(FoundFile const& file, PlannedFile const& planned) const
{
    ManifestEntry const& former = *planned.former;
    bool const isSameTime = former.modified == file.modified || _options.sumsUp;
    return former.size == file.size && isSameTime && _options.isDigest(former.options)
        && (!former.cover || *former.cover == _folderPictures.stateFor(file.path, former.album));
}

std::vector<std::size_t> PreparationPlan::filesIn(PlannedFile::State state) const
{
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < _files.size(); ++i) {
        if (_files[i].state == state)
            places.push_back(i);
    }
    return places;
}
