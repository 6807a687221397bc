#include "Space.h"

#include "NearestFolder.h"

#include <sys/statvfs.h>

Space::Space(std::string const& folder)
{
    struct statvfs status;
    if (::statvfs(nearestFolder(folder).c_str(), &status) != 0)
        return;
    _block = status.f_frsize ? status.f_frsize : 1;
    if (status.f_blocks) // File systems that do not know say that they have none at all.
        _available = std::uint64_t { status.f_bavail } * _block;
}

std::uint64_t Space::taken(std::uint64_t size) const
{
    return (size + _block - 1) / _block * _block;
}
