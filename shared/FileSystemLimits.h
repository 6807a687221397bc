#pragma once

#include <string>
#include <sys/types.h>

// What some file systems, of cards, shares and phones, cannot do.

/// Whether a file system does not know what it was asked for, which is no failure of the disk.
bool isUnknownToFileSystem(int error);

/// Whether a file system cannot rename: not at all, or not over a file.
bool isRenameUnknown(int error);

/// Removes the file at `path`. False when it must be closed before: some file systems in user space
/// rename what is open instead, even those that know no renames.
bool removeUnlessOpen(std::string const& path);

/// Whether a file system that `descriptor` is on has room for `bytes` more; one that does not tell
/// is believed to.
bool hasRoomFor(off_t bytes, int descriptor);
