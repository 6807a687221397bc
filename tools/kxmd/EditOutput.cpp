#include "EditOutput.h"

#include "JSONLine.h"
#include "OutputFile.h"
#include "Session.h"

#include <kxmd/base/KXAbstractData.h>

namespace {

constexpr char const* cannotWrite = "its output cannot be written";

}

KXAbstractData::Ref editedInput(EditOptions const& options, Session& session)
{
    auto data = KXAbstractData::abstractDataWithPath(options.path);
    if (!data) {
        session.reportUnreadable(options.path);
        writeRefusal(options, "cannot be read", 0, session);
        return nullptr;
    }
    if (canWriteOutputFile(options.output, { options.path, options.picturePath }, session))
        return data;
    writeRefusal(options, cannotWrite, data->length(), session);
    return nullptr;
}

bool writeEdited(
    EditOptions const& options, KXAbstractData& data, std::uint64_t bytesBefore, Session& session)
{
    if (writeOutputFile(options.output, { options.path, options.picturePath }, data, session))
        return true;
    writeRefusal(options, cannotWrite, bytesBefore, session);
    return false;
}

bool isAllowed(EditOptions const& options,
    std::function<std::optional<std::string>()> const& reason, std::uint64_t bytesBefore,
    Session& session)
{
    auto const found = options.isForced ? std::nullopt : reason();
    if (found)
        reportRefusal(options, *found, bytesBefore, session);
    return !found;
}

void reportEdit(EditOptions const& options, std::string const& what, std::uint64_t bytesBefore,
    std::uint64_t bytesAfter, Session& session)
{
    if (options.json) {
        session.write(jsonLine({ { "path", options.path }, { "ok", true },
            { "bytesBefore", bytesBefore }, { "bytesAfter", bytesAfter } }));
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

void writeRefusal(EditOptions const& options, std::string const& reason, std::uint64_t bytesBefore,
    Session& session)
{
    if (options.json)
        session.write(jsonLine({ { "path", options.path }, { "ok", false },
            { "bytesBefore", bytesBefore }, { "bytesAfter", bytesBefore }, { "reason", reason } }));
}
