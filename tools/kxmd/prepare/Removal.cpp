#include "Removal.h"

#include "GoneFile.h"

#include "tools/kxmd/Targets.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

Removal removalFrom(Manifest const& manifest, std::string const& folder,
    RemovalSources const& sources, Targets& targets)
{
    Removal removal;
    removal.recorded = manifest.entries().size();
    for (Manifest::Entry const& entry : manifest.entries()) {
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
    }
    std::ranges::sort(removal.entries, {}, &ManifestEntry::target);
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
