#include "shared/AtomicFile.h"

#include "shared/FileSystemLimits.h"
#include "shared/RangeCopy.h"

#include <kxmd/base/KXGuarded.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/file.h>
#include <sys/mman.h>
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

/// The parts of this process that have names, and new files that are not whole; with their
/// descriptors.
struct Parts {
    std::map<std::string, int> files;
    bool isOver { false };
};

KXGuarded<Parts>& parts()
{
    // Never destroyed: threads of a host may still write files while the process exits.
    static auto& shared = *new KXGuarded<Parts>();
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

/// The times of a file that is accessed now. To set that of modification alone is more than many
/// file systems in user space understand.
std::array<std::timespec, 2> fileTimes(std::timespec const& modification)
{
    return { std::timespec { 0, UTIME_NOW }, modification };
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
    if (_hasName)
        removePart();
    if (_descriptor >= 0) // Last, since a part is ours as long as it is open.
        ::close(_descriptor);
}

void AtomicFile::removePart()
{
    auto const named = parts().lock();
    if (!removeUnlessOpen(_partPath)) {
        ::close(std::exchange(_descriptor, -1));
        ::unlink(_partPath.c_str());
    }
    named->files.erase(_partPath);
    _hasName = false;
}

std::string AtomicFile::folder() const
{
    std::size_t const name = startOfName(_path);
    return name ? _path.substr(0, name) : ".";
}

bool AtomicFile::fail()
{
    _systemError = errno;
    _error = std::strerror(_systemError);
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
    auto const [file, isNew] = named->files.emplace(_partPath, -1); // No way back with a file.
    _hasName = make();
    if (_hasName)
        file->second = _descriptor;
    else if (isNew)
        named->files.erase(file);
    return _hasName;
}

void AtomicFile::dropName()
{
    parts().lock()->files.erase(_partPath);
    _hasName = false;
}

void removePartsForGood()
{
    auto const named = parts().lock();
    named->isOver = true;
    // No file of others, such as /dev/null: its permissions and times may still be set.
    int const nothing = ::memfd_create("kxmd", MFD_CLOEXEC);
    for (auto const& [path, descriptor] : named->files) {
        if (removeUnlessOpen(path))
            continue;
        if (nothing >= 0) // Closes it in a way that other threads may still write to it.
            ::dup3(nothing, descriptor, O_CLOEXEC);
        constexpr int mostAttempts = 100; // Each call that another thread is in holds it open.
        for (int i = 0; i < mostAttempts && !removeUnlessOpen(path); ++i)
            ::usleep(1000);
    }
    if (nothing >= 0)
        ::close(nothing);
}

bool AtomicFile::write(std::span<std::uint8_t const> bytes)
{
    return writeAll(_descriptor, bytes) || fail();
}

bool AtomicFile::writeRangeOf(int descriptor, std::uint64_t offset, std::uint64_t length)
{
    RangeCopy copy {
        .source = descriptor, .offset = offset, .length = length, .target = _descriptor
    };
    if (copy.run())
        return !copy.length;
    if (copy.readError) {
        _readError = { copy.readError, std::system_category() };
        return false;
    }
    errno = copy.writeError;
    return fail();
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
    if (!hasPart)
        return false;
    if (::rename(_partPath.c_str(), _path.c_str()) != 0)
        return fail();
    dropName();
    return true;
}

/// The same for a part, which had to have a name from the beginning: such file systems may not
/// rename either.
bool AtomicFile::renameIntoPlace()
{
    if (::rename(_partPath.c_str(), _path.c_str()) == 0) {
        dropName();
        return true;
    }
    return isRenameUnknown(errno) ? copyIntoPlace() : fail();
}

/// The file that a part is copied to.
struct AtomicFile::Place {
    struct stat part; ///< What is copied.
    bool isNew { false }; ///< Whether nothing is overwritten.
    int descriptor { -1 };
};

/// Copies the part to the file's place, and removes it only when the copy is on the disk.
bool AtomicFile::copyIntoPlace()
{
    Place place;
    if (!openPlace(place))
        return false;
    bool const isWhole = closePlace(place, fillPlace(place));
    if (isWhole) {
        removePart();
        if (_modificationTime) // Closing the file may have changed it.
            static_cast<void>(
                ::utimensat(AT_FDCWD, _path.c_str(), fileTimes(*_modificationTime).data(), 0));
    } else if (!place.isNew) {
        _error += "; the whole file is " + _partPath;
        _hasName = false; // It stays.
    }
    return isWhole;
}

/// Closes the file at the place, which is whole or not, and removes a new one that is not.
bool AtomicFile::closePlace(Place const& place, bool isWhole)
{
    auto const named = parts().lock();
    if (::close(place.descriptor) != 0 && isWhole)
        isWhole = fail();
    if (named->files.erase(_path) && named->isOver) { // It was removed.
        _error = "was interrupted";
        return false;
    }
    if (!isWhole && place.isNew)
        ::unlink(_path.c_str());
    return isWhole;
}

/// Empties the file at the place, or makes one. A process that ends removes a new one that is not
/// whole, but not the part once the old file is gone.
bool AtomicFile::openPlace(Place& place)
{
    struct stat replaced;
    place.isNew = ::lstat(_path.c_str(), &replaced) != 0;
    if (::fstat(_descriptor, &place.part) != 0)
        return fail();
    if (!hasRoomFor(place.part.st_size - (place.isNew ? 0 : replaced.st_size), _descriptor)) {
        errno = ENOSPC; // Told before the old file is lost.
        return fail();
    }
    if (!place.isNew && !syncFolder(folder())) // The part's name is needed from here on.
        return fail();
    auto const named = parts().lock();
    if (named->isOver) {
        _error = "was interrupted";
        return false;
    }
    if (place.isNew)
        named->files.emplace(_path, -1); // With a file there is no way back.
    place.descriptor = ::open(_path.c_str(),
        O_WRONLY | O_CLOEXEC | O_NOFOLLOW | (place.isNew ? O_CREAT | O_EXCL : O_TRUNC),
        place.part.st_mode & 0666);
    if (place.descriptor < 0 && place.isNew)
        named->files.erase(_path);
    if (place.descriptor < 0)
        return fail();
    if (place.isNew)
        named->files[_path] = place.descriptor;
    else
        named->files.erase(_partPath);
    return true;
}

bool AtomicFile::fillPlace(Place const& place)
{
    auto const length = static_cast<std::uint64_t>(place.part.st_size);
    RangeCopy copy {
        .source = _descriptor, .offset = 0, .length = length, .target = place.descriptor
    };
    if (!copy.run() || copy.length) {
        int const error = copy.readError ? copy.readError : copy.writeError;
        errno = error ? error : EIO; // The part became shorter by itself.
        return fail();
    }
    bool const isSynced = ::fdatasync(place.descriptor) == 0 || isUnknownToFileSystem(errno);
    return (isSynced && syncFolder(folder())) || fail();
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
    if (!flush())
        return false;
    if (_modificationTime)
        static_cast<void>(::futimens(_descriptor, fileTimes(*_modificationTime).data()));
    return _hasName ? renameIntoPlace() : linkIntoPlace();
}

bool AtomicFile::commit()
{
    takePermissions();
    return sync() && place() && (syncFolder(folder()) || fail());
}
