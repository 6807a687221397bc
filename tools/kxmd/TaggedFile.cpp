#include "TaggedFile.h"

#include "ProgressBar.h"
#include "Session.h"

#include <kxmd/core/KXMDFileMetaController.h>

KXDCFile::Ref taggedFile(std::string const& path, Session& session)
{
    if (!KXAbstractData::abstractDataWithPath(path)) {
        session.reportUnreadable(path);
        return nullptr;
    }
    auto const file = std::make_shared<KXDCSimpleFile>(path);
    auto const& controller = KXMDFileMetaController::sharedController();
    auto const meta = controller->fileMetaForFile(*file);
    if (session.reportReadError(path, meta->readError()))
        return nullptr;
    controller->mergeFileMetaIntoFile(*meta, *file);
    return file;
}

std::vector<KXDCFile::Ref> taggedFiles(
    std::vector<std::string> const& paths, ProgressBar& progress, Session& session)
{
    std::vector<KXDCFile::Ref> files;
    for (auto const& path : paths) {
        if (auto file = taggedFile(path, session))
            files.push_back(std::move(file));
        progress.advanceBy({ .items = 1 });
    }
    return files;
}
