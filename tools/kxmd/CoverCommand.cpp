// kxmd cover: takes the album cover out of a music file, removes it, or adds one.

#include "Commands.h"
#include "CoverSafety.h"
#include "EditOutput.h"
#include "PictureOutput.h"
#include "Session.h"
#include "Usage.h"

#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/platform/KXPlatform.h>

#include <functional>
#include <memory>
#include <utility>

namespace {

using Reason = std::optional<std::string>;
using Edit = std::function<bool(KXMutableData::Ref const& data)>;

constexpr char const* noMusic = "is neither an MP3 file with tags nor an MP4 file";

/// A music file held whole in memory.
struct LoadedFile {
    KXMutableData::Ref data;
    KXMDFileMeta::Ref meta; ///< Null when there is no such file.
};

/// The file that is edited; reported when it cannot be.
LoadedFile loadedFile(EditOptions const& options, Session& session)
{
    auto const input = editedInput(options, session);
    if (!input)
        return {};
    auto data = KXPlatform::shared()->fileManager->mutableDataWithContentsOfFile(options.path);
    if (!data) {
        reportRefusal(options, "does not fit into memory", input->length(), session);
        return {};
    }
    auto meta = KXMDFileMeta::fileMetaWithAbstractData(
        *KXMutableAbstractData::abstractDataWithData(data));
    if (!meta || meta->metaType() == KXMDMetaTypeUnknown) {
        reportRefusal(options, noMusic, data->length(), session);
        return {};
    }
    return { std::move(data), std::move(meta) };
}

/// What is done to a cover, in the words of the report.
struct Deed {
    char const* done;
    char const* cannotBeDone;
};

/// Edits a file unless `reasonFor` finds one why its media would not survive it, and writes it.
void edit(EditOptions const& options, LoadedFile const& file, Deed const& deed,
    std::function<Reason(KXAbstractData& data)> const& reasonFor, Edit const& editData,
    Session& session)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(file.data);
    std::uint64_t const bytesBefore = file.data->length();
    if (!isAllowed(
            options, [&] { return reasonFor(*reader); }, bytesBefore, session))
        return;
    if (!editData(file.data))
        return reportRefusal(options, deed.cannotBeDone, bytesBefore, session);
    auto const edited = KXMutableAbstractData::abstractDataWithData(file.data);
    if (writeEdited(options, *edited, bytesBefore, session))
        reportEdit(options, deed.done, bytesBefore, edited->length(), session);
}

void extractCover(EditOptions const& options, Session& session)
{
    auto const data = editedInput(options, session);
    if (!data)
        return;
    std::uint64_t const length = data->length();
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*data);
    auto const cover = meta ? meta->albumCoverFromData(*data) : nullptr;
    if (!cover)
        return reportRefusal(options, "has no cover that can be shown", length, session);
    if (!writePicture(cover, options.output, { options.path }, session))
        return writeRefusal(options, "its cover cannot be written", length, session);
    reportEdit(options, "cover extracted", length, length, session);
}

void removeCover(EditOptions const& options, Session& session)
{
    auto const file = loadedFile(options, session);
    if (!file.meta)
        return;
    edit(
        options, file, { "covers removed", "its covers cannot be removed" },
        [&file](auto& data) { return reasonAgainstRemovingCover(*file.meta, data); },
        [&file](auto const& data) { return file.meta->removeAlbumCoverFromData(data); }, session);
}

/// The picture to insert, at its own size; null, and reported, when there is none.
KXImage::Ref loadedPicture(EditOptions const& options, LoadedFile const& file, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(options.picturePath);
    auto const& loader = KXPlatform::shared()->pictureLoader;
    auto image = data ? loader->imageInData(*data, data->length(), {}) : nullptr;
    if (image)
        return image;
    if (data)
        session.reportError(options.picturePath, "is no picture that can be read");
    else
        session.reportUnreadable(options.picturePath);
    writeRefusal(options, "there is no picture to insert", file.data->length(), session);
    return nullptr;
}

void addCover(EditOptions const& options, Session& session)
{
    auto const file = loadedFile(options, session);
    auto const image = file.meta ? loadedPicture(options, file, session) : nullptr;
    if (!image)
        return;
    char const* const cannotBeDone
        = file.meta->canInsertAlbumCover() ? "no cover can be added" : "has no place for a cover";
    edit(
        options, file, { "cover added", cannotBeDone },
        [&](auto& data) { return reasonAgainstAddingCover(*file.meta, image, data); },
        [&](auto const& data) { return file.meta->addAlbumCoverToData(image, data); }, session);
}

CLI::App* addAction(CLI::App& cover, Session& session, char const* name, char const* description,
    EditOptions& options)
{
    auto* const action = addSubcommand(cover, session, name, description);
    action->add_flag("--json", options.json, "Print a JSON object");
    return action;
}

void addForce(CLI::App& action, EditOptions& options)
{
    action.add_flag("--force", options.isForced, "Edit even if the media does not survive it");
}

}

void addCoverCommand(CLI::App& app, Session& session)
{
    auto* const cover
        = addSubcommand(app, session, "cover", "Extract, remove or add the album cover");
    cover->require_subcommand(1);

    auto const extraction = std::make_shared<EditOptions>();
    auto* const extract = addAction(
        *cover, session, "extract", "Write the cover of a file as a picture", *extraction);
    addPictureOutput(*extract, extraction->output);
    addFile(*extract, extraction->path, "Music file");
    extract->callback([extraction, &session] { extractCover(*extraction, session); });

    auto const removal = std::make_shared<EditOptions>();
    auto* const remove = addAction(
        *cover, session, "remove", "Write a copy of a file without its covers", *removal);
    addForce(*remove, *removal);
    addRequiredOutput(*remove, removal->output, "Write the edited copy to this file");
    addFile(*remove, removal->path, "Music file");
    remove->callback([removal, &session] { removeCover(*removal, session); });

    auto const addition = std::make_shared<EditOptions>();
    auto* const add = addAction(
        *cover, session, "add", "Write a copy of a file with a picture as its cover", *addition);
    addForce(*add, *addition);
    addRequiredOutput(*add, addition->output, "Write the edited copy to this file");
    addFile(*add, addition->path, "Music file");
    addText(*add, "PICTURE", addition->picturePath, "Picture to insert, at its own size");
    add->callback([addition, &session] { addCover(*addition, session); });
}
