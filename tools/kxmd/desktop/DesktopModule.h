#pragma once

#include <string>

/// What the command asks of the desktop's libraries. They take longer to load than most runs take,
/// so they are behind a module of their own, which the runs open that need it.
struct DesktopModule {
    char const* version; ///< Of the command that it was built for.

    /// Drops what those libraries say to themselves: whatever a user needs to know is said by us,
    /// in one line. What ends the process, as for want of memory, is said.
    void (*dropRemarks)();

    /// `text`, which is UTF-8, the same for texts that differ in the case of their letters alone.
    std::string (*textWithoutCase)(std::string const& text);

    /// Whether the file at `path`, open as `descriptor`, is sound by its first bytes and its name,
    /// in a format of whatever kind. Playlists are not.
    bool (*isSound)(std::string const& path, int descriptor);

    /// SHA-256 of what the file of `descriptor` holds, in hexadecimal; empty when not all of it can
    /// be read. Leaves the descriptor's position as it is.
    std::string (*checksumOf)(int descriptor);
};

/// What the module exports, found by its name.
extern "C" __attribute__((visibility("default"))) DesktopModule const kxmdDesktopModule;
