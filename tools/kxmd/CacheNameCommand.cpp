// kxmd cache-name: the name under which the picture of a key is cached.

#include "Commands.h"
#include "Session.h"
#include "SizeArgument.h"
#include "Usage.h"

#include <kxmd/thumbnails/KXMDCacheName.h>

#include <memory>

namespace {

struct Options {
    std::string key;
    KXSize size;
};

}

void addCacheNameCommand(CLI::App& app, Session& session)
{
    auto* const command = addSubcommand(app, "cache-name", "Print the cache name of a key text");
    auto const options = std::make_shared<Options>();
    addText(*command, "KEY", options->key, "Text that stands for the picture");
    addSize(*command, options->size);
    command->callback([options, &session] {
        session.write(cacheNameForPath(options->key, options->size) + '\n');
    });
}
