// kxmd cover: takes the album cover out of a music file, removes it, or adds one.

#include "Commands.h"
#include "EditOutput.h"
#include "PictureOutput.h"
#include "Session.h"
#include "Usage.h"

#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/mp4/KXMP4EditSafety.h>
#include <kxmd/platform/KXPlatform.h>

#include <functional>
#include <memory>

namespace {

/// Says why an edit breaks the media; absent when it does not.
using Danger = std::function<std::optional<std::string>(KXMP4EditSafety const& safety)>;
using Edit = std::function<bool(KXMutableData::Ref const& data)>;

constexpr char const* noMusic = "is neither an MP3 file with tags nor an MP4 file";

/// A music file held whole in memory.
struct LoadedFile {
    KXMutableData::Ref data;
    KXMDFileMeta::Ref meta; ///< Null when there is no such file.
};

/// The file that is edited; reported when it cannot be read.
LoadedFile loadedFile(EditOptions const& options, Session& session)
{
    LoadedFile file;
    file.data = KXPlatform::shared()->fileManager->mutableDataWithContentsOfFile(options.path);
    if (!file.data) {
        auto const unheld = KXAbstractData::abstractDataWithPath(options.path);
        if (unheld)
            reportRefusal(options, "does not fit into memory", unheld->length(), session);
        else
            session.reportUnreadable(options.path);
        return file;
    }
    file.meta = KXMDFileMeta::fileMetaWithAbstractData(
        *KXMutableAbstractData::abstractDataWithData(file.data));
    if (!file.meta || file.meta->metaType() == KXMDMetaTypeUnknown) {
        reportRefusal(options, noMusic, file.data->length(), session);
        file.meta = nullptr;
    }
    return file;
}

void edit(EditOptions const& options, LoadedFile const& file, char const* what,
    Danger const& dangerOf, Edit const& editData, Session& session)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(file.data);
    std::uint64_t const bytesBefore = file.data->length();
    if (file.meta->metaType() == KXMDMetaTypeMP4
        && !isAllowed(options, dangerOf(KXMP4EditSafety(*reader)), bytesBefore, session))
        return;
    if (!editData(file.data))
        return reportRefusal(options, "its cover cannot be edited", bytesBefore, session);
    auto const edited = KXMutableAbstractData::abstractDataWithData(file.data);
    if (writeEdited(options, *edited, session))
        reportEdit(options, what, bytesBefore, edited->length(), session);
}

void extractCover(EditOptions const& options, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(options.path);
    if (!data)
        return session.reportUnreadable(options.path);
    std::uint64_t const length = data->length();
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*data);
    auto const cover = meta ? meta->albumCoverFromData(*data) : nullptr;
    if (!cover)
        return reportRefusal(options, "has no cover that can be shown", length, session);
    if (writePicture(cover, options.output, { options.path }, session))
        reportEdit(options, "cover extracted", length, length, session);
}

void removeCover(EditOptions const& options, Session& session)
{
    auto const file = loadedFile(options, session);
    if (!file.meta)
        return;
    edit(
        options, file, "covers removed",
        [](KXMP4EditSafety const& safety) { return safety.reasonAgainstRemovingAlbumCover(); },
        [&file](auto const& data) { return file.meta->removeAlbumCoverFromData(data); }, session);
}

/// The picture in the file at `path`, at its own size; null, and reported, when there is none.
KXImage::Ref loadedPicture(std::string const& path, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data) {
        session.reportUnreadable(path);
        return nullptr;
    }
    auto image = KXPlatform::shared()->pictureLoader->imageInData(*data, data->length(), {});
    if (!image)
        session.reportError(path, "is no picture that can be read");
    return image;
}

void addCover(EditOptions const& options, Session& session)
{
    auto const file = loadedFile(options, session);
    auto const image = loadedPicture(options.picturePath, session);
    if (!file.meta || !image)
        return;
    edit(
        options, file, "cover added",
        [&](KXMP4EditSafety const& safety) {
            return safety.reasonAgainstAddingAlbumCoverOfSize(
                file.meta->albumCoverSizeForImage(image));
        },
        [&](auto const& data) {
            // A size field of ID3v2 that is too short for the picture loses frames.
            return file.meta->addAlbumCoverToData(image, data)
                && (options.isForced
                    || file.meta->albumCoverSizeForEmbeddedTags()
                        == file.meta->albumCoverSizeForImage(image));
        },
        session);
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
