#include "EditOutput.h"

#include "JSONLine.h"
#include "OutputFile.h"
#include "Session.h"

#include <kxmd/base/KXAbstractData.h>

namespace {

constexpr char const* cannotWrite = "its output cannot be written";

template <class Data>
bool writeAnyEdited(
    EditOptions const& options, EditInput const& input, Data& data, Session& session)
{
    if (writeOutputFile(
            options.output, { options.path, options.picturePath }, input.file, data, session))
        return true;
    writeRefusal(options, cannotWrite, input.data->length(), session);
    return false;
}

}

std::unique_ptr<EditInput> editedInput(EditOptions const& options, Session& session)
{
    std::unique_ptr<EditInput> input(new EditInput { .file = SourceFile(options.path),
        .data = KXAbstractData::abstractDataWithPath(options.path) });
    if (!input->data) {
        session.reportUnreadable(options.path);
        writeRefusal(options, "cannot be read", 0, session);
        return nullptr;
    }
    if (canWriteOutputFile(options.output, { options.path, options.picturePath }, session))
        return input;
    writeRefusal(options, cannotWrite, input->data->length(), session);
    return nullptr;
}

bool isWhollyRead(EditOptions const& options, EditInput const& input, Session& session)
{
    std::error_code const error = input.data->readError();
    if (!error && !input.file.hasChanged())
        return true;
    reportRefusal(options, error ? problemOfReading(error) : "changed while it was read",
        input.data->length(), session);
    return false;
}

bool writeEdited(
    EditOptions const& options, EditInput const& input, KXAbstractData& data, Session& session)
{
    return writeAnyEdited(options, input, data, session);
}

bool writeEdited(
    EditOptions const& options, EditInput const& input, KXMutableData const& data, Session& session)
{
    return writeAnyEdited(options, input, data, session);
}

bool isAllowed(EditOptions const& options, EditInput const& input,
    std::function<std::optional<std::string>()> const& reason, Session& session)
{
    auto const found = options.isForced ? std::nullopt : reason();
    if (found)
        refuse(options, input, *found, session);
    return !found;
}

void reportEdit(EditOptions const& options, std::string const& what, std::uint64_t bytesBefore,
    std::uint64_t bytesAfter, Session& session)
{
    if (options.json) {
        session.write(jsonLine(jsonOfFile(options.path,
            { { "ok", true }, { "bytesBefore", bytesBefore }, { "bytesAfter", bytesAfter } })));
        return;
    }
    session.write(what + ": " + std::to_string(bytesBefore) + " bytes before, "
        + std::to_string(bytesAfter) + " after\n");
}

void reportRefusal(EditOptions const& options, std::string const& reason, std::uint64_t bytesBefore,
    Session& session)
{
    session.reportError(options.path, reason);
    writeRefusal(options, reason, bytesBefore, session);
}

void refuse(
    EditOptions const& options, EditInput const& input, std::string const& reason, Session& session)
{
    if (isWhollyRead(options, input, session))
        reportRefusal(options, reason, input.data->length(), session);
}

void writeRefusal(EditOptions const& options, std::string const& reason, std::uint64_t bytesBefore,
    Session& session)
{
    if (options.json)
        session.write(jsonLine(jsonOfFile(options.path,
            { { "ok", false }, { "bytesBefore", bytesBefore }, { "bytesAfter", bytesBefore },
                { "reason", reason } })));
}
