#include "kxmd/platform/linux/render/KXSealedMemoryPrivate.h"

#include "kxmd/base/KXStandardFilesPrivate.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>

namespace {

constexpr int finalSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;

/// Keeps the signal off this thread that tells of a file beyond the limit of the process, as long
/// as the object lives: a write that fails is enough, and the signal ends hosts that do not expect
/// it.
class NoSignalOfFileSize {
public:
    NoSignalOfFileSize()
    {
        sigemptyset(&_signal);
        sigaddset(&_signal, SIGXFSZ);
        ::pthread_sigmask(SIG_BLOCK, &_signal, &_before);
    }
    ~NoSignalOfFileSize()
    {
        timespec const noTime {};
        if (!sigismember(&_before, SIGXFSZ)) {
            while (::sigtimedwait(&_signal, nullptr, &noTime) < 0 && errno == EINTR) { }
            ::pthread_sigmask(SIG_SETMASK, &_before, nullptr);
        }
    }
    NoSignalOfFileSize(NoSignalOfFileSize const&) = delete;
    NoSignalOfFileSize& operator=(NoSignalOfFileSize const&) = delete;

private:
    sigset_t _signal;
    sigset_t _before;
};

}

KXFileDescriptor newMemoryFile()
{
    return KXFileDescriptor(
        KXAboveStandardFiles(::memfd_create("kxmd", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
}

bool writeToMemoryFile(int file, std::span<std::uint8_t const> bytes)
{
    NoSignalOfFileSize const noSignal;
    while (!bytes.empty()) {
        ssize_t const count = ::write(file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

bool sealMemoryFile(int file) { return ::fcntl(file, F_ADD_SEALS, finalSeals) == 0; }

std::shared_ptr<std::uint8_t const> mappedSealedMemory(int file, std::size_t length)
{
    struct stat status { };
    if (!length || ::fcntl(file, F_GET_SEALS) != finalSeals || ::fstat(file, &status) != 0
        || status.st_size != static_cast<off_t>(length))
        return nullptr;
    void* const memory = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    return { static_cast<std::uint8_t const*>(memory), [length](std::uint8_t const* bytes) {
                ::munmap(const_cast<std::uint8_t*>(bytes), length);
            } };
}

KXFileDescriptor sealedMemoryOf(std::span<std::uint8_t const> bytes)
{
    KXFileDescriptor file = newMemoryFile();
    bool const isDone
        = file.isOpen() && writeToMemoryFile(file.get(), bytes) && sealMemoryFile(file.get());
    return isDone ? std::move(file) : KXFileDescriptor();
}
