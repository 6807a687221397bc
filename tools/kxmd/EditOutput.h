#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class KXAbstractData;
class Session;

/// What a subcommand that edits a file was asked for.
struct EditOptions {
    std::string path;
    std::string picturePath; ///< Another input, of some of them.
    std::string output;
    bool isForced { false };
    bool json { false };
};

/// The file at `options.path`; null, reported, when it cannot be read or nothing be written to
/// `options.output`.
std::shared_ptr<KXAbstractData> editedInput(EditOptions const& options, Session& session);

/// Writes all that `data` reads to the file at `options.output`. Reports a failure; false then.
bool writeEdited(
    EditOptions const& options, KXAbstractData& data, std::uint64_t bytesBefore, Session& session);

/// Whether an edit may be made: `reason` says why the media would not survive it, and is only asked
/// where that matters. A refusal is reported.
bool isAllowed(EditOptions const& options,
    std::function<std::optional<std::string>()> const& reason, std::uint64_t bytesBefore,
    Session& session);

/// Tells in one line that `options.path` became `options.output`.
void reportEdit(EditOptions const& options, std::string const& what, std::uint64_t bytesBefore,
    std::uint64_t bytesAfter, Session& session);

/// Reports that nothing was written, and why.
void reportRefusal(EditOptions const& options, std::string const& reason, std::uint64_t bytesBefore,
    Session& session);

/// The same, only as JSON, if that is wanted: standard error has the reason already.
void writeRefusal(EditOptions const& options, std::string const& reason, std::uint64_t bytesBefore,
    Session& session);
