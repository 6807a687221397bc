// kxmd icon: the icon of a file's type.

#include "Commands.h"
#include "Desktop.h"
#include "PictureOutput.h"
#include "Session.h"
#include "Usage.h"

#include <filesystem>
#include <memory>
#include <system_error>

namespace {

struct Options {
    std::string path;
    std::string output;
    KXSize size;
};

/// Only its name counts, and whether it is a folder: the file need not be there.
void writeIcon(Options const& options, Session& session)
{
    KXDCSimpleFile file(options.path);
    std::error_code ignored;
    file.setIsFolder(std::filesystem::is_directory(options.path, ignored));
    auto const icon = thumbnailController()->iconForFile(file, options.size);
    writePicture(icon, options.output, { options.path }, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    addSize(command, options->size);
    addPictureOutput(command, options->output)->required();
    addFile(command, options->path, "File or folder, which need not exist");
    command.callback([options, &session] { writeIcon(*options, session); });
}

}

Command const iconCommand { .name = "icon",
    .description = "Write the icon of a file's type",
    .group = pictureGroup,
    .examples = R"(    kxmd icon letter.odt -s 64x64 -o icon.png)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
