// kxmd clean: a phone's video without its user data.

#include "Commands.h"
#include "Processing.h"
#include "Session.h"

#include <kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h>

#include <memory>

namespace {

void clean(EditOptions const& options, Session& session)
{
    TemporaryFolder const folder(KXPlatform::shared());
    auto const input = processingInput(options, folder, session);
    auto const reason = [&input] {
        return KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*input->data);
    };
    if (!input || !isAllowed(options, reason, input->data->length(), session))
        return;
    KXMDFileProcessorCleanIPhoneVideo const processor(folder.platform());
    process(options, { processor, false, "cannot be cleaned" }, *input, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<EditOptions>();
    addProcessingOptions(command, *options);
    command.add_flag("--force", options->isForced, "Clean even if the media does not survive it");
    command.callback([options, &session] { clean(*options, session); });
}

}

Command const cleanCommand { .name = "clean",
    .description = "Write a copy of a phone's video without its user data",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
