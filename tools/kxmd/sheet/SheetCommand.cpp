// kxmd sheet: a page that shows what is in many files.

#include "Sheet.h"
#include "tools/kxmd/Commands.h"
#include "tools/kxmd/FileWalk.h"
#include "tools/kxmd/TargetFolder.h"
#include "tools/kxmd/Usage.h"
#include "tools/kxmd/prepare/Manifest.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

struct Options {
    CLI::Option* paths { nullptr };
    std::string output;
    unsigned jobs { std::max(1u, std::thread::hardware_concurrency()) };
};

void writeSheet(Options const& options, Session& session)
{
    std::vector<SheetEntry> entries;
    auto const isWanted = [](std::string_view path) { return !Manifest::isOurs(path); };
    auto found = foundFiles(
        textsOf(*options.paths), { .keepsNames = true, .isWanted = isWanted }, session);
    leaveOutEarlierPage(found.files, options.output);
    entries.reserve(found.files.size());
    for (FoundFile const& file : found.files)
        entries.push_back({ .path = file.path, .name = file.relativePath });
    writeSheet(entries, options.output, options.jobs, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    addRequiredOutput(command, options->output, "Write the page, of HTML, to this file");
    command.get_option_no_throw("--output")->check(problemOfSheetName);
    addJobs(command, options->jobs);
    options->paths = addFiles(command, "Files and folders to show");
    command.callback([options, &session] { writeSheet(*options, session); });
}

}

Command const sheetCommand { .name = "sheet",
    .description = "Write a page that shows what is in files and folders",
    .group = collectionGroup,
    .examples = R"(    kxmd sheet ~/Music -o music.html)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
