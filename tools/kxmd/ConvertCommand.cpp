// kxmd convert: lossless audio as AAC.

#include "Commands.h"
#include "Processing.h"
#include "Session.h"

#include <kxmd/processors/KXMDFileProcessorConvertALAC.h>

#include <memory>

namespace {

void convert(EditOptions const& options, Session& session)
{
    TemporaryFolder const folder(KXPlatform::shared());
    auto const input = processingInput(options, folder, session);
    if (!input)
        return;
    KXMDFileProcessorConvertALAC const processor(folder.platform());
    process(options, { processor, true, "cannot be converted" }, *input, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<EditOptions>();
    addProcessingOptions(command, *options);
    command.callback([options, &session] { convert(*options, session); });
}

}

Command const convertCommand { .name = "convert",
    .description = "Write a copy of lossless audio as AAC",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
