#include "shared/FileSystemLimits.h"

#include <cerrno>
#include <cstdint>
#include <sys/statvfs.h>
#include <unistd.h>

bool isUnknownToFileSystem(int error)
{
    return error == EINVAL || error == ENOSYS || error == ENOTSUP;
}

bool isRenameUnknown(int error)
{
    return isUnknownToFileSystem(error) || error == EPERM || error == EEXIST;
}

bool removeUnlessOpen(std::string const& path)
{
    return ::unlink(path.c_str()) == 0 || !isRenameUnknown(errno);
}

bool hasRoomFor(off_t bytes, int descriptor)
{
    struct statvfs status;
    if (bytes <= 0 || ::fstatvfs(descriptor, &status) != 0 || !status.f_blocks)
        return true;
    return static_cast<std::uint64_t>(bytes) <= status.f_bavail * status.f_frsize;
}
