#pragma once

#include "kxmd/base/KXExport.h"

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// The programs that the desktop has installed to make thumbnails: files that end in ".thumbnailer"
/// and name content types and a command. Read at first use. Safe to call from several threads.
class KX_EXPORT_FOR_TESTS KXDesktopThumbnailers {
public:
    /// Over folders of such files; what an earlier folder says goes before a later one.
    explicit KXDesktopThumbnailers(std::vector<std::string> folders);

    /// What a command is to be filled with.
    struct Task {
        std::string path; ///< The file, absolute.
        std::string outputPath; ///< Where the thumbnail is to be written, as PNG.
        int sideLength { 0 }; ///< In pixels.
    };

    /// The program's path and its arguments for files of a content type; empty when there is none,
    /// or when its command cannot be understood.
    std::vector<std::string> commandForType(std::string const& contentType, Task const& task) const;

    /// The content types with a command that can be understood and whose program there is, sorted.
    std::vector<std::string> contentTypes() const;

private:
    void readFoldersOnce() const;
    void readFolder(std::string const& folder) const;
    void readFile(std::string const& path) const;

    std::vector<std::string> const _folders;
    mutable std::once_flag _isRead;
    mutable std::map<std::string, std::string, std::less<>> _commands; // By content type.
};
