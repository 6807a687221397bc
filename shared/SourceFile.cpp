#include "shared/SourceFile.h"

#include "shared/FileStatus.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

std::string problemOfReading(std::error_code error) { return "cannot be read: " + error.message(); }

SourceFile::SourceFile(std::string path)
    : _path(std::move(path))
    , _descriptor(::open(_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) // A FIFO waits.
    , _openError(_descriptor < 0 ? errno : 0)
    , _before(openState())
{
}

SourceFile::~SourceFile()
{
    if (_descriptor >= 0)
        ::close(_descriptor);
}

std::string SourceFile::error() const
{
    if (_openError)
        return std::strerror(_openError);
    return S_ISREG(_before.mode) ? "" : "is not a regular file";
}

timespec SourceFile::modificationTime() const
{
    struct stat status { };
    ::fstat(_descriptor, &status);
    return status.st_mtim;
}

bool SourceFile::hasChanged() const
{
    struct stat status { };
    return ::stat(_path.c_str(), &status) != 0 || stateOf(status) != _before;
}

SourceFile::State SourceFile::stateOf(struct stat const& status)
{
    return { status.st_dev, status.st_ino, status.st_mode, status.st_size,
        modificationTimeOf(status) };
}

SourceFile::State SourceFile::openState() const
{
    struct stat status { };
    if (_descriptor >= 0)
        ::fstat(_descriptor, &status);
    return stateOf(status);
}
