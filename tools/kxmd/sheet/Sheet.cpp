#include "Sheet.h"

#include "tools/kxmd/Desktop.h"
#include "tools/kxmd/OrderedWork.h"
#include "tools/kxmd/OutputFile.h"
#include "tools/kxmd/ProgressBar.h"
#include "tools/kxmd/Session.h"
#include "tools/kxmd/Usage.h"

std::string problemOfSheetName(std::string const& typed)
{
    std::string const name = withoutLiteralMark(typed);
    bool const isPage = name.ends_with(".html") || name.ends_with(".htm");
    return isPage ? "" : "\"" + name + "\" ends in neither .html nor .htm";
}

void writeSheet(std::vector<SheetEntry> const& entries, std::string const& path, unsigned jobs,
    Session& session)
{
    std::vector<std::string> inputs;
    inputs.reserve(entries.size());
    for (SheetEntry const& entry : entries)
        inputs.push_back(entry.path);
    if (!canWriteOutputFile(path, inputs, session))
        return;
    auto const platform = machine();
    ProgressBar progress(session.standardError(), "files", { .items = entries.size() });
    SheetPage page(path);
    bool isWritten = page.open();
    auto const rowAt = [&](std::size_t item) {
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
    if (!isWritten || !page.finish())
        session.reportError(path, page.error());
}
