// kxmd poster: the poster frame of a movie.

#include "Commands.h"
#include "Desktop.h"
#include "PictureOutput.h"
#include "Session.h"
#include "Usage.h"

#include <kxmd/thumbnails/KXMDQTParser.h>

#include <memory>

namespace {

struct Options {
    std::string path;
    std::string output;
};

void writePoster(Options const& options, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(options.path);
    if (!data)
        return session.reportUnreadable(options.path);
    KXMDQTParser parser(machine());
    bool const isFound = parser.parseAbstractData(*data);
    if (session.reportReadError(options.path, data->readError()))
        return;
    writePicture(isFound ? parser.thumbnail() : nullptr, options.output, { options.path }, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    addPictureOutput(command, options->output)->required();
    addFile(command, options->path, "Movie to show");
    command.callback([options, &session] { writePoster(*options, session); });
}

}

Command const posterCommand { .name = "poster",
    .description = "Write the poster frame of a movie, or else its first",
    .group = pictureGroup,
    .examples = R"(    kxmd poster film.mp4 -o poster.jpg)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
