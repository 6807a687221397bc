#include "kxmd/platform/linux/system/KXGLibFileManagerPrivate.h"

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXPath.h"
#include "kxmd/base/KXPathPrivate.h"
#include "kxmd/base/KXStandardFilesPrivate.h"

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <glib.h>
#include <glib/gstdio.h>
#include <new>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// A buffer that grows by a cover stays where it is; what is not used costs no memory.
constexpr std::size_t roomForACover = 1 << 20;
constexpr std::size_t pieceLength = 256 * 1024;
constexpr int fileOnlyForTheUser = 0600;
constexpr int folderOnlyForTheUser = 0700;

/// More would starve whatever else runs here: a sparse file may have any size and hold nothing.
std::uint64_t bytesOfMemory()
{
    return static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES))
        * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

bool setContents(std::span<std::uint8_t const> bytes, std::string const& path)
{
    KXStandardFiles const standardFiles;
    g_autoptr(GError) error = nullptr;
    bool const isWritten = g_file_set_contents_full(path.c_str(),
        reinterpret_cast<char const*>(bytes.data()), static_cast<gssize>(bytes.size()),
        G_FILE_SET_CONTENTS_CONSISTENT, fileOnlyForTheUser, &error);
    if (!isWritten)
        KXLog("Metadata", "KXFileManager->%s", error->message);
    return isWritten;
}

/// A buffer with room for `length` bytes and a cover; absent, and logged, where there is no memory.
std::optional<std::vector<std::uint8_t>> bufferForBytes(std::uint64_t length)
{
    try {
        if (length <= bytesOfMemory()) {
            std::vector<std::uint8_t> bytes;
            bytes.reserve(length + roomForACover);
            return bytes;
        }
    } catch (std::bad_alloc const&) {
    }
    KXLog("Metadata", "KXFileManager->no memory for a file of %" PRIu64 " bytes", length);
    return std::nullopt;
}

}

KXMutableData::Ref KXGLibFileManager::mutableDataWithContentsOfFile(std::string const& path) const
{
    auto const file = KXAbstractData::abstractDataWithPath(path);
    auto bytes = file ? bufferForBytes(file->length()) : std::nullopt;
    if (!bytes)
        return nullptr;
    // Piece by piece, since a vector would first fill with zeros what is read over them.
    std::vector<std::uint8_t> piece(std::min<std::uint64_t>(pieceLength, file->length()));
    while (bytes->size() < file->length()) {
        std::uint64_t const count = file->readBytesToMaxLength(piece.data(), piece.size());
        if (!count)
            return nullptr; // The file became shorter.
        bytes->insert(bytes->end(), piece.data(), piece.data() + count);
    }
    return std::make_shared<KXMutableData>(std::move(*bytes));
}

bool KXGLibFileManager::writeBytesToFile(
    std::span<std::uint8_t const> bytes, std::string const& path) const
{
    if (KXIsCutShortByZero(path))
        return false;
    // GLib writes beside the file, under its name and seven letters more.
    constexpr std::size_t longestName = NAME_MAX - 7;
    if (KXLastPathComponent(path).size() <= longestName)
        return setContents(bytes, path);
    std::string folder(KXPathByDeletingLastPathComponent(path));
    std::string aside = (folder.empty() ? "." : folder) + "/.kxmd-XXXXXX";
    int const descriptor = g_mkstemp(aside.data());
    if (descriptor < 0)
        return false;
    ::close(descriptor);
    if (setContents(bytes, aside) && std::rename(aside.c_str(), path.c_str()) == 0)
        return true;
    ::unlink(aside.c_str());
    return false;
}

bool KXGLibFileManager::createFolderAtPath(std::string const& path) const
{
    return !KXIsCutShortByZero(path)
        && g_mkdir_with_parents(path.c_str(), folderOnlyForTheUser) == 0;
}

void KXGLibFileManager::removeEmptyFolderAtPath(std::string const& path) const
{
    if (!KXIsCutShortByZero(path))
        ::rmdir(path.c_str()); // A folder that stays is removed later.
}

std::optional<std::uint64_t> KXGLibFileManager::sizeOfFileAtPath(std::string const& path) const
{
    struct stat status;
    if (KXIsCutShortByZero(path) || ::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}
