#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <sys/types.h>
#include <system_error>

/// In words, that the system refused to read some of a file.
std::string problemOfReading(std::error_code error);

/// A file that is read, held open so that it can be told whether it changed meanwhile.
class SourceFile {
public:
    explicit SourceFile(std::string path);
    ~SourceFile();
    SourceFile(SourceFile const&) = delete;
    SourceFile& operator=(SourceFile const&) = delete;

    /// Why it cannot be read, or nothing.
    std::string error() const;

    int descriptor() const { return _descriptor; }
    /// Its length when it was opened, in bytes.
    std::uint64_t size() const { return static_cast<std::uint64_t>(_before.size); }
    /// When its content last changed, in nanoseconds since 1970; the same as the system has it.
    std::int64_t modified() const { return _before.modified; }
    timespec modificationTime() const;
    /// Its number in its file system.
    std::int64_t inode() const { return static_cast<std::int64_t>(_before.node); }
    /// Who may read and write it.
    mode_t permissions() const { return _before.mode & 0666; }
    /// Whether there is another content at the path by now, or none: processors open it by that.
    bool hasChanged() const;

private:
    struct State {
        dev_t device { 0 };
        ino_t node { 0 };
        mode_t mode { 0 };
        off_t size { 0 };
        std::int64_t modified { 0 };
        bool operator==(State const&) const = default;
    };

    static State stateOf(struct stat const& status);
    State openState() const;

    std::string const _path;
    int const _descriptor;
    int const _openError;
    State const _before;
};
