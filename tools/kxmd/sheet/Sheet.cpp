#include "Sheet.h"

#include "SheetTemplate.h"
#include "tools/kxmd/Desktop.h"
#include "tools/kxmd/OrderedWork.h"
#include "tools/kxmd/OutputFile.h"
#include "tools/kxmd/ProgressBar.h"
#include "tools/kxmd/Session.h"
#include "tools/kxmd/Usage.h"

#include <kxmd/base/KXAbstractData.h>

#include <atomic>
#include <cstdint>
#include <string_view>
#include <sys/stat.h>

namespace {

/// Whether the file at `path` begins as our pages do.
bool isPage(std::string const& path)
{
    auto const page = sheetTemplate();
    std::string_view const begin = page.substr(0, page.find("<style>"));
    auto const data = KXAbstractData::abstractDataWithPath(path);
    std::string found(begin.size(), '\0');
    return data && data->readBytesTo(reinterpret_cast<std::uint8_t*>(found.data()), found.size())
        && found == begin;
}

/// Writes the page, and reports what cannot be read.
bool writePage(
    std::vector<SheetEntry> const& entries, AtomicFile& file, unsigned jobs, Session& session)
{
    auto const platform = machine();
    ProgressBar progress(session.standardError(), "files", { .items = entries.size() });
    SheetPage page(file);
    std::atomic<bool> isWritten { page.begin() };
    auto const rowAt = [&](std::size_t item) {
        if (!isWritten) // The disk is full, say: nobody will see the rest.
            return SheetRow();
        auto row = sheetRowOf(entries[item], *platform);
        progress.advanceBy({ .items = 1 });
        return row;
    };
    auto const addRow = [&](std::size_t item, SheetRow const& row) {
        isWritten = isWritten && page.add(row);
        if (entries[item].isFailed)
            return;
        session.reportReadError(entries[item].path, row.readError);
        if (row.isUnreadable)
            session.reportUnreadable(entries[item].path);
    };
    workInOrder(
        entries.size(), jobs, rowAt, [](auto&) {}, addRow);
    return isWritten && page.finish();
}

}

std::string problemOfSheetName(std::string const& typed)
{
    std::string const name = withoutLiteralMark(typed);
    bool const isNamedAsPage = name.ends_with(".html") || name.ends_with(".htm");
    return isNamedAsPage ? "" : "\"" + name + "\" ends in neither .html nor .htm";
}

void leaveOutEarlierPage(std::vector<FoundFile>& files, std::string const& path)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0 || !isPage(path))
        return;
    std::erase_if(files,
        [page = identityOf(status)](FoundFile const& file) { return file.identity == page; });
}

void writeSheet(std::vector<SheetEntry> const& entries, std::string const& path, unsigned jobs,
    Session& session)
{
    std::vector<std::string> inputs;
    inputs.reserve(entries.size());
    for (SheetEntry const& entry : entries)
        inputs.push_back(entry.path);
    writeOutputFile(
        path, inputs, [&](AtomicFile& file) { return writePage(entries, file, jobs, session); },
        session);
}
