// kxmd thumbnail: the picture that stands for a file.

#include "Commands.h"
#include "PictureOutput.h"
#include "Session.h"
#include "TaggedFile.h"
#include "Usage.h"

#include <kxmd/thumbnails/KXMDThumbnailController.h>

#include <memory>

namespace {

struct Options {
    std::string path;
    std::string output;
    KXSize size;
};

void writeThumbnail(Options const& options, Session& session)
{
    auto const file = taggedFile(options.path, session);
    if (!file)
        return;
    auto const& controller = KXMDThumbnailController::sharedController();
    auto const image = controller->thumbnailForFile(*file, options.size);
    writePicture(image, options.output, { options.path }, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    addSize(command, options->size);
    addPictureOutput(command, options->output);
    addFile(command, options->path, "File to show");
    command.callback([options, &session] { writeThumbnail(*options, session); });
}

}

Command const thumbnailCommand { .name = "thumbnail",
    .description = "Write the picture that stands for a file",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
