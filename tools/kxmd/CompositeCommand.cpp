// kxmd composite: the pictures of four files in one.

#include "Commands.h"
#include "Desktop.h"
#include "PictureOutput.h"
#include "ProgressBar.h"
#include "Session.h"
#include "TaggedFile.h"
#include "Usage.h"

#include <memory>

namespace {

struct Options {
    std::string output;
    KXSize size;
};

void writeComposite(std::vector<std::string> const& paths, Options const& options, Session& session)
{
    ProgressBar progress(session.standardError(), "files", { .items = paths.size() });
    auto const files = taggedFiles(paths, progress, session);
    if (files.empty())
        return;
    std::vector<std::string> inputs;
    inputs.reserve(files.size());
    for (auto const& file : files)
        inputs.push_back(file->sourcePath());
    auto const& controller = thumbnailController();
    auto const composite = controller->compositeThumbnailForFiles(files, options.size);
    writePicture(composite, options.output, inputs, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    addSize(command, options->size);
    addPictureOutput(command, options->output)->required();
    auto* const files = addFiles(command, "Files to show; the first four that differ");
    command.callback(
        [options, files, &session] { writeComposite(textsOf(*files), *options, session); });
}

}

Command const compositeCommand { .name = "composite",
    .description = "Write the pictures of four files in one",
    .group = pictureGroup,
    .examples = R"(    kxmd composite a.jpg b.jpg c.jpg d.jpg -s 256x256 -o four.png)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
