#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}
class Session;
class Targets;

/// The folder that a subcommand writes a file to for each that it reads. It gets no slashes at its
/// end, so that paths below it read well; the root stays what it is.
CLI::Option* addTargetFolder(
    CLI::App& command, std::string& folder, std::string const& description);

inline constexpr unsigned mostJobs = 256; ///< Files that are worked on at once.

/// How many files are worked on at once.
void addJobs(CLI::App& command, unsigned& jobs);

/// False, and reported, when the folder cannot be made.
bool makeTargetFolder(std::string const& folder, Session& session);

/// Whether files can be made in the folder, as not on a locked card; reports why not. True of one
/// that is not there. Where permissions say no, which a share may not mean, it is tried, unless
/// nothing is to be written.
bool isWritableFolder(std::string const& folder, Session& session, bool isDryRun = false);

/// Makes the folders of `paths`, which lie below `folder`, and sees that they are on the disk.
/// False, and reported, when they may not be. A folder that cannot be made is reported, too; its
/// files fail later.
bool makeFoldersOf(std::vector<std::string> const& paths, std::string const& folder,
    Targets& targets, Session& session);
