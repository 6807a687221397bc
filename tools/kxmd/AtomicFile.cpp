#include "AtomicFile.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr mode_t readableByAll = 0666; // As far as the user's mask lets it.

/// Where `path` is written until it is whole.
std::string partPathOf(std::string const& path)
{
    constexpr std::size_t longestName = 200; // Of 255, in whatever encoding.
    std::size_t const slash = path.rfind('/');
    std::size_t const name = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(0, name) + "." + path.substr(name, longestName) + ".kxmd-part";
}

std::string folderOf(std::string const& path)
{
    std::size_t const slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// Waits for the disk: a file that replaces another must not be lost with the power.
bool replacesAnother(std::string const& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && status.st_size > 0;
}

}

AtomicFile::AtomicFile(std::string path)
    : _path(std::move(path))
    , _partPath(partPathOf(_path))
{
}

AtomicFile::~AtomicFile()
{
    if (_descriptor >= 0)
        ::close(_descriptor);
    if (_hasName)
        ::unlink(_partPath.c_str());
}

bool AtomicFile::fail()
{
    _error = std::strerror(errno);
    return false;
}

bool AtomicFile::open()
{
    // A file without a name vanishes with the process, however that ends.
    _descriptor = ::open(folderOf(_path).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, readableByAll);
    if (_descriptor >= 0)
        return true;
    ::unlink(_partPath.c_str()); // Of a run that was killed.
    _descriptor = ::open(_partPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, readableByAll);
    _hasName = _descriptor >= 0;
    return _hasName || fail();
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
    for (bool isFirst = true;; isFirst = false) {
        ssize_t const count = ::copy_file_range(descriptor, nullptr, _descriptor, nullptr, most, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            isSupported = !isFirst || errno == ENOSPC || errno == EIO || errno == EDQUOT;
            return fail();
        }
        if (count == 0) {
            isSupported = !isFirst; // Some file systems say 0 for what they do not know.
            return true;
        }
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
    ::unlink(_partPath.c_str()); // Of a run that was killed.
    _hasName = link(_partPath);
    return (_hasName && ::rename(_partPath.c_str(), _path.c_str()) == 0) || fail();
}

bool AtomicFile::commit()
{
    if (replacesAnother(_path) && ::fdatasync(_descriptor) != 0)
        return fail();
    bool const isInPlace
        = _hasName ? ::rename(_partPath.c_str(), _path.c_str()) == 0 || fail() : linkIntoPlace();
    _hasName = _hasName && !isInPlace;
    // Some file systems tell only now that there was no room.
    if (::close(std::exchange(_descriptor, -1)) != 0 && isInPlace) {
        fail();
        ::unlink(_path.c_str());
        return false;
    }
    return isInPlace;
}
