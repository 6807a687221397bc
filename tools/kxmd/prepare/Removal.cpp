#include "Removal.h"

#include "tools/kxmd/Targets.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isBelow(std::string const& path, std::string const& root)
{
    return path.starts_with(root) && (root.ends_with('/') || path[root.size()] == '/');
}

bool isGone(std::string const& path)
{
    struct stat status;
    return ::lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

}

Removal removalFrom(Manifest const& manifest, std::string const& folder,
    std::vector<std::string> const& roots, Targets& targets)
{
    Removal removal;
    removal.recorded = manifest.entries().size();
    for (auto const& [target, entry] : manifest.entries()) {
        std::string const& source = entry->source;
        bool const isOurs = std::ranges::any_of(
            roots, [&source](std::string const& root) { return isBelow(source, root); });
        if (isOurs && isGone(source) && !targets.isClaimed(folder + '/' + target))
            removal.entries.push_back(*entry);
    }
    std::ranges::sort(removal.entries, {}, &ManifestEntry::target);
    return removal;
}

std::string removePrepared(ManifestEntry const& entry, std::string const& folder)
{
    std::string const path = folder + '/' + entry.target;
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0)
        return errno == ENOENT || errno == ENOTDIR ? "" : std::strerror(errno);
    bool const isAsRecorded
        = S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) == entry.targetSize;
    if (!isAsRecorded)
        return "is not removed: it was changed since it was prepared";
    if (::unlink(path.c_str()) != 0)
        return std::strerror(errno);
    removeEmptyFoldersAbove(path, folder);
    return {};
}

void removeEmptyFoldersAbove(std::string const& path, std::string const& folder)
{
    std::string parent(KXPathByDeletingLastPathComponent(path));
    while (parent.size() > folder.size() && ::rmdir(parent.c_str()) == 0)
        parent = KXPathByDeletingLastPathComponent(parent);
}
