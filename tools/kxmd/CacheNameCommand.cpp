// kxmd cache-name: the name under which the picture of a key, a file or files is cached.

#include "Commands.h"
#include "Desktop.h"
#include "ProgressBar.h"
#include "Session.h"
#include "TaggedFile.h"
#include "Usage.h"

#include <memory>

namespace {

struct Options {
    KXSize size;
    bool isFile { false };
    bool isComposite { false };
};

/// The name for those files that can be read; empty without any.
std::string nameForFiles(
    std::vector<std::string> const& paths, Options const& options, Session& session)
{
    ProgressBar progress(session.standardError(), "files", { .items = paths.size() });
    auto const files = taggedFiles(paths, progress, session);
    auto const& controller = thumbnailController();
    if (options.isComposite)
        return controller->cacheNameForCompositeFiles(files, options.size);
    return files.empty() ? std::string()
                         : controller->cacheNameForFile(*files.front(), options.size);
}

void printName(std::vector<std::string> const& keys, Options const& options, Session& session)
{
    if (keys.size() > 1 && !options.isComposite)
        throw CLI::ValidationError("KEY", "only --composite takes several");
    std::string const name = options.isFile || options.isComposite
        ? nameForFiles(keys, options, session)
        : thumbnailController()->cacheNameForPath(keys.front(), options.size);
    if (!name.empty())
        session.write(name + '\n');
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    auto* const file
        = command.add_flag("--file", options->isFile, "Take KEY for a file, and read its tags");
    command
        .add_flag("--composite", options->isComposite, "Take the KEYs for the files of a composite")
        ->excludes(file);
    addSize(command, options->size);
    auto* const keys = addTexts(command, "KEY", "Text, or path, that stands for the picture");
    command.callback([options, keys, &session] { printName(textsOf(*keys), *options, session); });
}

}

Command const cacheNameCommand { .name = "cache-name",
    .description = "Print the cache name of a key text, a file or a composite of files",
    .group = pictureGroup,
    .examples = R"(    kxmd cache-name --file song.mp3 -s 100x100)",
    .nature = Command::Nature::reads,
    .addOptions = addOptions };
