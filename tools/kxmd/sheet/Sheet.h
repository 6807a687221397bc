#pragma once

#include "tools/kxmd/FileWalk.h"
#include "tools/kxmd/sheet/SheetPage.h"

#include <CLI/App.hpp>

#include <string>
#include <vector>

class Session;

/// What is wrong with the name of a page; nothing when it ends as one, so that no song is
/// overwritten by mistake.
std::string problemOfSheetName(std::string const& typed);

/// Takes the page that an earlier run wrote to `path` from the files that were found: it lies in a
/// folder that is shown, and is replaced.
void leaveOutEarlierPage(std::vector<FoundFile>& files, std::string const& path);

/// Writes a page about some files to `path`, looking into `jobs` of them at once. Reports what goes
/// wrong, but for what the entries tell already.
void writeSheet(std::vector<SheetEntry> const& entries, std::string const& path, unsigned jobs,
    Session& session);
