#include "tools/shared/AtomicFile.h"

#include <kxmd/base/KXGuarded.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

std::size_t startOfName(std::string const& path)
{
    std::size_t const slash = path.rfind('/');
    return slash == std::string::npos ? 0 : slash + 1;
}

/// Where `path` is written until it is whole. A short name of plain letters, since a long one might
/// not fit and not every file system takes every letter.
std::string partPathOf(std::string const& path)
{
    std::size_t const name = startOfName(path);
    return path.substr(0, name) + ".kxmd-part-"
        + std::to_string(std::hash<std::string>()(path.substr(name)));
}

/// The parts of this process that have names.
struct Parts {
    std::set<std::string> paths;
    bool isOver { false };
};

KXGuarded<Parts>& parts()
{
    static KXGuarded<Parts> shared;
    return shared;
}

/// Gives a file the permissions of another. Those of a phone's card or of a share often know none,
/// and say so in different ways; then there is nothing to keep private either.
void copyPermissions(struct stat const& other, int descriptor)
{
    constexpr mode_t permissions = 0777;
    struct stat own;
    if (::fstat(descriptor, &own) != 0
        || (own.st_mode & permissions) != (other.st_mode & permissions))
        static_cast<void>(::fchmod(descriptor, other.st_mode & permissions));
}

/// Whether a file system does not know what it was asked for, which is no failure of the disk.
bool isUnknownToFileSystem(int error)
{
    return error == EINVAL || error == ENOSYS || error == ENOTSUP;
}

}

bool syncFolder(std::string const& folder)
{
    int const descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) // One that only takes files: its names cannot be waited for.
        return errno == EACCES;
    bool const isDone = ::fsync(descriptor) == 0 || isUnknownToFileSystem(errno);
    int const error = errno;
    ::close(descriptor);
    errno = error;
    return isDone;
}

AtomicFile::AtomicFile(std::string path)
    : _path(std::move(path))
    , _partPath(partPathOf(_path))
{
}

AtomicFile::~AtomicFile()
{
    if (_hasName) {
        ::unlink(_partPath.c_str());
        dropName();
    }
    if (_descriptor >= 0) // Last, since a part is ours as long as it is open.
        ::close(_descriptor);
}

std::string AtomicFile::folder() const
{
    std::size_t const name = startOfName(_path);
    return name ? _path.substr(0, name) : ".";
}

bool AtomicFile::fail()
{
    _error = std::strerror(errno);
    return false;
}

bool AtomicFile::open(mode_t permissions)
{
    struct stat status;
    if (::stat(_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        _error = S_ISDIR(status.st_mode) ? "is a folder" : "is not a regular file";
        return false;
    }
    // A file without a name vanishes with the process, however that ends.
    _descriptor = ::open(folder().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, permissions);
    return _descriptor >= 0 || openPart(permissions);
}

bool AtomicFile::openPart(mode_t permissions)
{
    return takeName([&] { return openNamed(permissions); })
        && (::ftruncate(_descriptor, 0) == 0 || fail());
}

/// Where files must have a name: takes over what a killed run left, but not what another run is
/// writing right now.
bool AtomicFile::openNamed(mode_t permissions)
{
    _descriptor = ::open(
        _partPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, permissions);
    if (_descriptor < 0)
        return fail();
    if (::flock(_descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        _error = "is being written by another program";
        return false;
    }
    struct stat ours, named;
    bool const isStillThere = ::fstat(_descriptor, &ours) == 0 && S_ISREG(ours.st_mode)
        && ::lstat(_partPath.c_str(), &named) == 0 && ours.st_ino == named.st_ino;
    if (!isStillThere) { // The other one has just put it in place.
        _error = "was written by another program";
        return false;
    }
    return true;
}

/// Lets `make` put a file at the part's path, and remembers it. Nothing is made when the process is
/// about to end, nor does it end in between.
bool AtomicFile::takeName(std::function<bool()> const& make)
{
    auto const named = parts().lock();
    if (named->isOver) {
        _error = "was interrupted";
        return false;
    }
    auto const [name, isNew] = named->paths.insert(_partPath); // With a file there is no way back.
    _hasName = make();
    if (!_hasName && isNew)
        named->paths.erase(name);
    return _hasName;
}

void AtomicFile::dropName()
{
    parts().lock()->paths.erase(_partPath);
    _hasName = false;
}

void removePartsForGood()
{
    auto const named = parts().lock();
    named->isOver = true;
    for (std::string const& path : named->paths)
        ::unlink(path.c_str());
}

bool AtomicFile::write(std::span<std::uint8_t const> bytes)
{
    while (!bytes.empty()) {
        ssize_t const count = ::write(_descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
            return fail();
        if (count > 0)
            bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

/// Lets the kernel copy, or share, the blocks, where it can.
bool AtomicFile::copyByKernel(int descriptor, bool& isSupported)
{
    constexpr std::size_t most = std::size_t { 1 } << 30;
    isSupported = true;
    for (bool isFirst = true;;) {
        ssize_t const count = ::copy_file_range(descriptor, nullptr, _descriptor, nullptr, most, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            isSupported = !isFirst || errno == ENOSPC || errno == EIO || errno == EDQUOT;
            return isSupported && fail();
        }
        if (count == 0) {
            isSupported = !isFirst; // Some file systems say 0 for what they do not know.
            return true;
        }
        isFirst = false;
    }
}

bool AtomicFile::writeContentsOf(int descriptor)
{
    bool isSupported;
    bool const isCopied = copyByKernel(descriptor, isSupported);
    if (isSupported)
        return isCopied;
    std::array<std::uint8_t, 64 * 1024> piece;
    for (;;) {
        ssize_t const count = ::read(descriptor, piece.data(), piece.size());
        if (count < 0 && errno != EINTR)
            return fail();
        if (count == 0)
            return true;
        if (count > 0 && !write(std::span(piece).first(static_cast<std::size_t>(count))))
            return false;
    }
}

/// Gives a file without a name its place; one that stands there is replaced in a second step.
bool AtomicFile::linkIntoPlace()
{
    std::string const self = "/proc/self/fd/" + std::to_string(_descriptor);
    auto const link = [&self](std::string const& path) {
        return ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
    };
    if (link(_path))
        return true;
    if (errno != EEXIST)
        return fail();
    bool const hasPart = takeName([&] {
        ::unlink(_partPath.c_str()); // Of a run that was killed.
        return link(_partPath) || fail();
    });
    return hasPart && (::rename(_partPath.c_str(), _path.c_str()) == 0 || fail());
}

/// Some file systems tell only when a descriptor is closed that there was no room. That of a copy
/// tells as well, and ours keeps the file, and its lock, until it has its place.
bool AtomicFile::flush()
{
    int const copy = ::fcntl(_descriptor, F_DUPFD_CLOEXEC, 0);
    return (copy >= 0 && ::close(copy) == 0) || fail();
}

void AtomicFile::takePermissions()
{
    struct stat replaced;
    if (::stat(_path.c_str(), &replaced) == 0)
        copyPermissions(replaced, _descriptor);
}

bool AtomicFile::sync()
{
    return ::fdatasync(_descriptor) == 0 || isUnknownToFileSystem(errno) || fail();
}

bool AtomicFile::place()
{
    bool const isInPlace = flush()
        && (_hasName ? ::rename(_partPath.c_str(), _path.c_str()) == 0 || fail() : linkIntoPlace());
    if (_hasName && isInPlace)
        dropName();
    return isInPlace;
}

bool AtomicFile::commit()
{
    takePermissions();
    return sync() && place() && (syncFolder(folder()) || fail());
}
