#include "Removal.h"

#include "GoneFile.h"
#include "Playlists.h"
#include "tools/kxmd/Targets.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Folders = std::set<std::string, std::less<>>;

/// The folders that a path is in, down from the topmost, which is "".
void addFoldersOf(std::string_view path, Folders& folders)
{
    do
        path = KXPathByDeletingLastPathComponent(path);
    while (folders.emplace(path).second && !path.empty());
}

/// The playlists of a folder that lose their last song when other files are removed from it.
class SonglessPlaylists {
public:
    SonglessPlaylists(std::string const& folder, std::vector<ManifestEntry> const& removed,
        Folders const& foldersWithFiles, Targets& targets)
        : _folder(folder)
        , _foldersWithFiles(foldersWithFiles)
        , _targets(targets)
    {
        for (ManifestEntry const& entry : removed) {
            addFoldersOf(entry.target, _foldersOfRemoved);
            _removed.insert(entry.target);
        }
    }

    bool contain(ManifestEntry const& list) const
    {
        std::string_view const folder = KXPathByDeletingLastPathComponent(list.target);
        if (!_foldersWithFiles.contains(folder))
            return true;
        // A phone takes its time to open a file, and each album may have a list.
        bool const isLookedAt = folder.empty() || _foldersOfRemoved.contains(folder);
        if (!isLookedAt || !reasonAgainstRemoving(list, _folder).empty())
            return false;
        auto const songs = songsOfPlaylist(_folder + '/' + list.target);
        return songs
            && std::ranges::all_of(*songs, [this](auto const& song) { return goes(song); });
    }

private:
    bool goes(std::string const& path) const
    {
        struct stat status;
        return _removed.contains(std::string_view(path).substr(_folder.size() + 1))
            || (!_targets.isClaimed(path) && ::lstat(path.c_str(), &status) != 0
                && (errno == ENOENT || errno == ENOTDIR));
    }

    std::string const& _folder;
    std::set<std::string, std::less<>> _removed; ///< Their targets.
    Folders _foldersOfRemoved;
    Folders const& _foldersWithFiles;
    Targets& _targets;
};

}

Removal removalFrom(Manifest const& manifest, std::string const& folder,
    RemovalSources const& sources, Targets& targets)
{
    Removal removal;
    Folders folders; // That have files.
    for (std::string const& target : sources.kept)
        addFoldersOf(target, folders);
    std::vector<Manifest::Entry> playlists;
    for (Manifest::Entry const& entry : manifest.entries()) {
        if (entry->isPlaylist) {
            playlists.push_back(entry);
            continue;
        }
        ++removal.recorded;
        std::string const& source = entry->source;
        auto const holdsSource = [&source](std::string const& path) {
            return source == path || !KXRelativePathForRootFolder(source, path).empty();
        };
        bool const isLookedFor = std::ranges::any_of(sources.roots, holdsSource)
            && std::ranges::none_of(sources.unseen, holdsSource);
        std::string const path = folder + '/' + entry->target;
        bool const isWanted = sources.kept.contains(entry->target) || targets.isClaimed(path)
            || !targets.reasonAgainst(path).empty();
        if (isLookedFor && !isWanted && isGone(source))
            removal.entries.push_back(*entry);
        else
            addFoldersOf(entry->target, folders);
    }
    SonglessPlaylists const songless(folder, removal.entries, folders, targets);
    for (Manifest::Entry const& list : playlists) {
        std::string const path = folder + '/' + list->target;
        if (!sources.isWritten(path) && targets.reasonAgainst(path).empty()
            && songless.contain(*list))
            removal.playlists.push_back(*list);
    }
    std::ranges::sort(removal.entries, {}, &ManifestEntry::target);
    std::ranges::sort(removal.playlists, {}, &ManifestEntry::target);
    return removal;
}

std::string reasonAgainstRemoving(ManifestEntry const& entry, std::string const& folder)
{
    struct stat status;
    if (::lstat((folder + '/' + entry.target).c_str(), &status) != 0)
        return {};
    bool const isAsRecorded
        = S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) == entry.targetSize;
    return isAsRecorded ? "" : "is not removed: it was changed since it was prepared";
}

std::string removePrepared(ManifestEntry const& entry, std::string const& folder)
{
    std::string const path = folder + '/' + entry.target;
    if (::unlink(path.c_str()) != 0)
        return errno == ENOENT || errno == ENOTDIR ? "" : std::strerror(errno);
    removeEmptyFoldersAbove(path, folder);
    return {};
}

void removeEmptyFoldersAbove(std::string const& path, std::string const& folder)
{
    std::string parent(KXPathByDeletingLastPathComponent(path));
    while (parent.size() > folder.size() && ::rmdir(parent.c_str()) == 0)
        parent = KXPathByDeletingLastPathComponent(parent);
}
