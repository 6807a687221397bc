#pragma once

#include <kxmd/host/KXDCFile.h>

#include <string>
#include <vector>

class ProgressBar;
class Session;

/// The file at `path` as the library's operations want it, with the tags that were found in it.
/// Null when it cannot be read, which is then reported.
KXDCFile::Ref taggedFile(std::string const& path, Session& session);

/// The same for each of `paths` that can be read, in their order. Counts all of them on `progress`.
std::vector<KXDCFile::Ref> taggedFiles(
    std::vector<std::string> const& paths, ProgressBar& progress, Session& session);
