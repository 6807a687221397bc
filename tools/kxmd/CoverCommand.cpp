// kxmd cover: takes the album cover out of a music file, removes it, or adds one.

#include "Commands.h"
#include "Desktop.h"
#include "EditOutput.h"
#include "PictureOutput.h"
#include "Session.h"
#include "Usage.h"
#include "shared/CoverSafety.h"

#include <kxmd/base/KXMutableData.h>
#include <kxmd/core/KXMDFileMeta.h>

#include <functional>
#include <memory>
#include <utility>

namespace {

using Reason = std::optional<std::string>;
using Edit = std::function<bool(KXMutableData::Ref const& data)>;

constexpr char const* noMusic = "is neither an MP3 file with tags nor an MP4 file";

/// A music file, of which only what is changed will be in memory.
struct MusicFile {
    std::unique_ptr<EditInput> input;
    KXMDFileMeta::Ref meta; ///< Null when there is no such file.
};

/// The file that is edited; reported when it cannot be.
MusicFile musicFile(EditOptions const& options, Session& session)
{
    auto input = editedInput(options, session);
    if (!input)
        return {};
    auto meta = KXMDFileMeta::fileMetaWithAbstractData(*input->data);
    if (!meta || meta->metaType() == KXMDMetaTypeUnknown) {
        refuse(options, *input, noMusic, session);
        return {};
    }
    return { std::move(input), std::move(meta) };
}

/// What the report says of an edit, done or not.
struct Wording {
    char const* done;
    char const* refused;
};

/// Edits a file, unless `reasonFor` finds a reason why its media would not survive that, and writes
/// it.
void edit(EditOptions const& options, MusicFile const& file, Wording const& wording,
    std::function<Reason(KXAbstractData& data)> const& reasonFor, Edit const& editData,
    Session& session)
{
    EditInput const& input = *file.input;
    if (!isAllowed(
            options, input, [&] { return reasonFor(*input.data); }, session))
        return;
    auto const edited = std::make_shared<KXMutableData>(input.data);
    if (!editData(edited))
        return refuse(options, input, wording.refused, session);
    if (isWhollyRead(options, input, session) && writeEdited(options, input, *edited, session))
        reportEdit(options, wording.done, input.data->length(), edited->length(), session);
}

void extractCover(EditOptions const& options, Session& session)
{
    auto const input = editedInput(options, session);
    if (!input)
        return;
    std::uint64_t const length = input->data->length();
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*input->data);
    static_cast<void>(machine()); // Which the cover is decoded by.
    auto const cover = meta ? meta->albumCoverFromData(*input->data) : nullptr;
    if (!isWhollyRead(options, *input, session))
        return;
    if (!cover)
        return reportRefusal(options, "has no cover that can be shown", length, session);
    if (!writePicture(cover, options.output, { options.path }, session))
        return writeRefusal(options, "its cover cannot be written", length, session);
    reportEdit(options, "cover extracted", length, length, session);
}

void removeCover(EditOptions const& options, Session& session)
{
    auto const file = musicFile(options, session);
    if (!file.meta)
        return;
    edit(
        options, file, { "covers removed", "its covers cannot be removed" },
        [&file](auto& data) { return reasonAgainstRemovingCover(*file.meta, data); },
        [&file](auto const& data) { return file.meta->removeAlbumCoverFromData(data); }, session);
}

/// The picture to insert, at its own size, as the JPEG file that is embedded; empty, and reported,
/// when there is none.
KXData encodedPicture(EditOptions const& options, MusicFile const& file, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(options.picturePath);
    auto const& loader = *machine()->pictureLoader;
    auto const image = data ? loader.imageInData(*data, data->length(), {}) : nullptr;
    if (!data) {
        session.reportUnreadable(options.picturePath);
    } else if (!session.reportReadError(options.picturePath, data->readError())) {
        auto picture = image ? loader.jpgRepresentation(*image) : KXData();
        if (picture.length())
            return picture;
        session.reportError(options.picturePath,
            image ? "cannot be made a JPEG file" : "is not a picture that can be read");
    }
    writeRefusal(options, "there is no picture to insert", file.input->data->length(), session);
    return {};
}

void addCover(EditOptions const& options, Session& session)
{
    auto const file = musicFile(options, session);
    auto const picture = file.meta ? encodedPicture(options, file, session) : KXData();
    if (!picture.length())
        return;
    char const* const refusal
        = file.meta->canInsertAlbumCover() ? "no cover can be added" : "has no place for a cover";
    edit(
        options, file, { "cover added", refusal },
        [&](auto& data) { return reasonAgainstAddingCover(*file.meta, picture, data); },
        [&](auto const& data) { return file.meta->addEncodedAlbumCoverToData(picture, data); },
        session);
}

/// What one of the three does.
using Action = void (*)(EditOptions const& options, Session& session);

/// Adds one of them, with the option that all have.
CLI::App& addAction(CLI::App& cover, Session& session, char const* name, char const* description,
    std::shared_ptr<EditOptions> const& options, Action action)
{
    CLI::App& added = addSubcommand(cover, session, name, description);
    added.add_flag("--json", options->json, "Print a JSON object");
    added.callback([options, action, &session] { action(*options, session); });
    return added;
}

void addEditOptions(CLI::App& action, EditOptions& options)
{
    action.add_flag("--force", options.isForced, "Edit even if the media does not survive it");
    addRequiredOutput(action, options.output, "Write the edited copy to this file");
    addFile(action, options.path, "Music file");
}

void addOptions(CLI::App& command, Session& session)
{
    command.require_subcommand(1);

    auto const extraction = std::make_shared<EditOptions>();
    CLI::App& extract = addAction(command, session, "extract",
        "Write the cover of a file as a picture", extraction, extractCover);
    addPictureOutput(extract, extraction->output);
    addFile(extract, extraction->path, "Music file");

    auto const removal = std::make_shared<EditOptions>();
    CLI::App& remove = addAction(command, session, "remove",
        "Write a copy of a file without its covers", removal, removeCover);
    addEditOptions(remove, *removal);

    auto const addition = std::make_shared<EditOptions>();
    CLI::App& add = addAction(command, session, "add",
        "Write a copy of a file with a picture as its cover", addition, addCover);
    addEditOptions(add, *addition);
    addText(add, "PICTURE", addition->picturePath, "Picture to insert, at its own size");
}

}

Command const coverCommand { .name = "cover",
    .description = "Extract, remove or add the album cover",
    .group = editGroup,
    .examples = R"(    kxmd cover extract song.mp3 -o cover.jpg
    kxmd cover remove song.mp3 -o bare.mp3
    kxmd cover add song.m4a cover.jpg -o new.m4a)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
