// kxmd clean: a phone's video without its user data.

#include "Commands.h"
#include "Processing.h"
#include "Session.h"

#include <kxmd/base/KXMutableData.h>
#include <kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h>

#include <memory>

namespace {

/// The file of `input` without its user data, as much of that as can be removed.
KXMutableData::Ref cleanedData(EditInput const& input)
{
    auto cleaned = std::make_shared<KXMutableData>(input.data);
    static_cast<void>(KXMDFileProcessorCleanIPhoneVideo::cleanData(cleaned));
    if (cleaned->length() != input.data->length())
        return cleaned;
    return std::make_shared<KXMutableData>(input.data); // Nothing went, so nothing is corrected.
}

void clean(EditOptions const& options, Session& session)
{
    auto const input = editedInput(options, session);
    auto const reason = [&input] {
        return KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*input->data);
    };
    if (!input || !isAllowed(options, *input, reason, session))
        return;
    std::uint64_t const before = input->data->length();
    std::uint64_t const predicted
        = KXMDFileProcessorCleanIPhoneVideo::cleanedSizeOfData(*input->data);
    auto const cleaned = cleanedData(*input);
    std::uint64_t const after = cleaned->length();
    // What was found has to go, all of it.
    if (after != predicted && !options.isForced)
        return refuse(options, *input, "cannot be cleaned", session);
    if (isWhollyRead(options, *input, session) && writeEdited(options, *input, *cleaned, session))
        reportProcessed(options, after != before, { before, predicted, after }, session);
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
    .group = editGroup,
    .examples = R"(    kxmd clean holiday.mov -o clean.mov)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
