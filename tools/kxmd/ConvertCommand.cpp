// kxmd convert: lossless audio as AAC.

#include "Commands.h"
#include "Desktop.h"
#include "Processing.h"
#include "Session.h"
#include "shared/TemporaryFolder.h"

#include <kxmd/processors/KXMDFileProcessorConvertALAC.h>

#include <memory>

namespace {

/// The file at `options.path`, where there is a folder to convert it in; null, and reported, when
/// either is missing.
std::unique_ptr<EditInput> convertedInput(
    EditOptions const& options, TemporaryFolder const& folder, Session& session)
{
    auto input = editedInput(options, session);
    if (!input || folder.platform())
        return input;
    reportRefusal(
        options, "there is no temporary folder to work in", input->data->length(), session);
    return nullptr;
}

void convert(EditOptions const& options, Session& session)
{
    TemporaryFolder const folder(machine());
    auto const input = convertedInput(options, folder, session);
    if (!input)
        return;
    KXMDFileProcessorConvertALAC const processor(folder.platform());
    KXDCSimpleFileProxy const proxy(std::make_shared<KXDCSimpleFile>(options.path), options.output);
    std::uint64_t const before = input->data->length();
    std::uint64_t const predicted = processor.processedFilesizeForFileProxy(proxy, before);
    auto const converted = processor.processedFileDataForFileProxy(proxy, input->data);
    if (!isWhollyRead(options, *input, session))
        return;
    if (!converted)
        return reportRefusal(options, "cannot be converted", before, session);
    if (writeEdited(options, *input, *converted, session))
        reportProcessed(options, true, { before, predicted, converted->length() }, session);
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
    .group = editGroup,
    .examples = R"(    kxmd convert lossless.m4a -o song.m4a)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
