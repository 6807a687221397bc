#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <sys/types.h>
#include <system_error>

/// A file that is written beside its place and put there when it is whole, so that nobody ever sees
/// half of it. What is not put in place is removed with the object; on most file systems not even a
/// killed process leaves anything behind.
///
/// Some file systems cannot rename, or not over a file, as those through which a desktop shows a
/// phone. There the whole file, a hidden part beside its place, is copied to its place, and only
/// then removed; until then it takes its room twice. Others may see half of the copy. Of what fails
/// meanwhile nothing is left where there was no file; where one was already being overwritten, the
/// part stays, and the error names it: one whole file, old or new, is there at any moment, even if
/// the process is killed or the power lost. The next file for the same place takes the part over.
class AtomicFile {
public:
    explicit AtomicFile(std::string path);
    ~AtomicFile();
    AtomicFile(AtomicFile const&) = delete;
    AtomicFile& operator=(AtomicFile const&) = delete;

    /// Begins; the folder must exist, and what is at the path must be a file or nothing. False when
    /// that fails, as all operations below; `error` then tells why. The file gets `permissions` as
    /// far as the user's mask lets it, unless there is one that it replaces.
    [[nodiscard]] bool open(mode_t permissions = 0666);
    /// Appends `bytes`.
    [[nodiscard]] bool write(std::span<std::uint8_t const> bytes);
    /// Appends `length` bytes that the file of `descriptor` holds from `offset` on, by the kernel
    /// alone where it can. False as well, with no `error`, when there are fewer, or when these
    /// cannot be read; `readError` then tells why.
    [[nodiscard]] bool writeRangeOf(int descriptor, std::uint64_t offset, std::uint64_t length);
    /// The time of last modification that the file will have, rather than that of writing it.
    /// Nothing fails for it: some file systems keep no times, or only even seconds.
    void setModificationTime(std::timespec const& time) { _modificationTime = time; }
    /// Puts the file in place, of another one if there is one, as private as that. Its bytes are on
    /// the disk before it gets its name, and the name is when this returns: power that is lost at
    /// any moment leaves the old file or the new one, whole, where files can be renamed.
    [[nodiscard]] bool commit();

    // The steps of `commit`, for many files that reach the disk together.

    /// Makes the file as private as the one that is at its place.
    void takePermissions();
    /// Waits until the file's bytes are on the disk.
    [[nodiscard]] bool sync();
    /// Gives the file its place, once its bytes are on the disk.
    [[nodiscard]] bool place();

    /// Where the file goes, and its folder.
    std::string const& path() const { return _path; }
    std::string folder() const;
    /// The open file.
    int descriptor() const { return _descriptor; }

    /// Why the system refused to read what `writeRangeOf` copies; none while it did not.
    std::error_code readError() const { return _readError; }
    /// What went wrong, in words.
    std::string const& error() const { return _error; }
    /// The system's reason, as in `errno`; 0 when it gave none.
    int systemError() const { return _systemError; }
    /// The same with the path, for where it is told of another file.
    std::string errorWithPath() const { return "cannot be written to " + _path + ": " + _error; }

private:
    struct Place;

    bool fail();
    bool openPart(mode_t permissions);
    bool openNamed(mode_t permissions);
    bool takeName(std::function<bool()> const& make);
    void dropName();
    void removePart();
    bool flush();
    bool linkIntoPlace();
    bool renameIntoPlace();
    bool copyIntoPlace();
    bool openPlace(Place& place);
    bool fillPlace(Place const& place);
    bool closePlace(Place const& place, bool isWhole);

    std::string const _path;
    std::string const _partPath; ///< Beside it, hidden, the same for each run.
    int _descriptor { -1 };
    bool _hasName { false }; ///< Whether there is a file at the part's path.
    std::optional<std::timespec> _modificationTime;
    std::error_code _readError;
    std::string _error;
    int _systemError { 0 };
};

/// Waits until the names in `folder` are on the disk. False when the disk fails, `errno` tells why;
/// true where a file system keeps no promise about names.
[[nodiscard]] bool syncFolder(std::string const& folder);

/// Removes what files that are being written left beside their places; none can be begun any more.
/// For a process that is about to end. Safe on any thread.
void removePartsForGood();
