#include "kxmd/base/KXFileDataPrivate.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXPathPrivate.h"
#include "kxmd/base/KXStandardFilesPrivate.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Sizes of the windows, in bytes. The head of a file usually holds all of its tags. After a jump
// lie a few atoms or frames before the next jump, so little is read there, unless that is part of
// something short that will be gone through; a parse that goes straight on gets longer windows,
// each twice as long as the one before.
constexpr std::size_t headWindowLength = 8 * 1024;
constexpr std::size_t jumpWindowLength = 2 * 1024;
constexpr std::size_t longestWindowLength = 64 * 1024;
constexpr std::uint64_t longestExpectedAtOnce = 32 * 1024;

/// Says that a file could not be opened through no fault of its path. Whoever asked may only learn
/// that there is nothing, and do without.
void logFaultOfTheMachine(int error)
{
    for (int const fault : { EIO, EMFILE, ENFILE, ENOMEM }) {
        if (error == fault)
            KXLog("Metadata", "KXAbstractData->a file cannot be opened: %s", std::strerror(error));
    }
    errno = error;
}

}

KXAbstractData::Ref KXFileData::createWithPath(std::string const& path)
{
    if (KXIsCutShortByZero(path))
        return nullptr;
    // Asked of the path and not of the open file: to open a FIFO wakes its writer, and a device may
    // move. If another file takes the path's place just now, its reads succeed up to this length.
    struct stat status;
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    // Without O_NONBLOCK the open of a FIFO, if that is what has taken its place, would wait.
    int const descriptor
        = KXAboveStandardFiles(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (descriptor < 0) {
        logFaultOfTheMachine(errno);
        return nullptr;
    }
    try {
        return std::make_shared<KXFileData>(descriptor, static_cast<std::uint64_t>(status.st_size));
    } catch (...) { // For want of memory: nobody else knows the descriptor.
        ::close(descriptor);
        throw;
    }
}

KXFileData::KXFileData(int descriptor, std::uint64_t length)
    : _descriptor(descriptor)
    , _length(length)
{
}

KXFileData::~KXFileData() { ::close(_descriptor); }

std::uint64_t KXFileData::readFile(
    std::uint64_t position, std::uint8_t* target, std::uint64_t count)
{
    std::uint64_t done = 0;
    while (done < count) {
        ssize_t const got = ::pread(_descriptor, target + done,
            static_cast<std::size_t>(count - done), static_cast<off_t>(position + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            noteReadError({ errno, std::system_category() });
        if (got <= 0) // Unreadable, or cut off under us.
            break;
        done += static_cast<std::uint64_t>(got);
    }
    return done;
}

/// Said once: who asks for what the file holds may only learn that there is nothing.
void KXFileData::noteReadError(std::error_code error)
{
    if (!readError())
        KXLog("Metadata", "KXAbstractData->a file cannot be read: %s", error.message().c_str());
    keepReadError(error);
}

/// What is left of an expected stretch there, if it is worth bringing in whole; otherwise 0.
std::size_t KXFileData::lengthExpectedFrom(std::uint64_t position) const
{
    auto const [start, length] = expected();
    std::uint64_t const into = position - start; // Wraps past any length when before it.
    bool const isWorthIt = into < length && length <= longestExpectedAtOnce;
    return isWorthIt ? static_cast<std::size_t>(length - into) : 0;
}

std::size_t KXFileData::windowLengthAt(std::uint64_t position) const
{
    if (!_usedSlots)
        return headWindowLength;
    Slot const& last = _slots[_current];
    bool const goesOn = position >= last.start && position - last.start <= last.length;
    if (!goesOn)
        return std::max(jumpWindowLength, lengthExpectedFrom(position));
    return std::clamp(
        static_cast<std::size_t>(last.length) * 2, jumpWindowLength, longestWindowLength);
}

KXFileData::Slot& KXFileData::nextSlot()
{
    if (_usedSlots < _slots.size())
        _current = _usedSlots++;
    else
        _current = _current + 1 < _slots.size() ? _current + 1 : 1;
    return _slots[_current];
}

/// The slot that has these bytes; null without one.
KXFileData::Slot const* KXFileData::slotWith(std::uint64_t position, std::size_t count)
{
    for (std::size_t i = 0; i < _usedSlots; ++i) {
        Slot const& slot = _slots[i];
        std::uint64_t const into = position - slot.start; // Wraps past any length when before it.
        if (into <= slot.length && count <= slot.length - into) {
            _current = i;
            return &slot;
        }
    }
    return nullptr;
}

KXFileData::Slot& KXFileData::readSlotAt(std::uint64_t position, std::size_t count)
{
    std::size_t const wanted = std::max(windowLengthAt(position), count);
    Slot& slot = nextSlot();
    if (slot.capacity < wanted) {
        slot.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(wanted);
        slot.capacity = wanted;
    }
    slot.start = position;
    slot.length
        = readFile(position, slot.bytes.get(), std::min<std::uint64_t>(wanted, _length - position));
    return slot;
}

std::uint8_t const* KXFileData::bytesAt(std::uint64_t position, std::size_t count)
{
    Slot const* const found = slotWith(position, count);
    Slot const& slot = found ? *found : readSlotAt(position, count);
    setWindow({ slot.bytes.get(), slot.start, slot.length });
    std::uint64_t const into = position - slot.start;
    return count <= slot.length - into ? slot.bytes.get() + into : nullptr;
}

std::uint64_t KXFileData::copyBytesAt(
    std::uint64_t position, std::uint8_t* target, std::uint64_t count)
{
    if (count > longestContiguousRead)
        return readFile(position, target, count);
    std::uint8_t const* const bytes = bytesAt(position, static_cast<std::size_t>(count));
    if (!bytes)
        return 0;
    std::copy_n(bytes, count, target);
    return count;
}
