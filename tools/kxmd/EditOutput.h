#pragma once

#include "shared/SourceFile.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class KXAbstractData;
class KXMutableData;
class Session;

/// What a subcommand that edits a file was asked for.
struct EditOptions {
    std::string path;
    std::string picturePath; ///< Another input, of some of them.
    std::string output;
    bool isForced { false };
    bool json { false };
};

/// The file that is edited.
struct EditInput {
    SourceFile file;
    std::shared_ptr<KXAbstractData> data; ///< Reads it.
};

/// The file at `options.path`; null, reported, when it cannot be read or nothing be written to
/// `options.output`.
std::unique_ptr<EditInput> editedInput(EditOptions const& options, Session& session);

/// Whether all that was asked of the input could be read, and it is still what it was; a refusal is
/// reported where it is not.
bool isWhollyRead(EditOptions const& options, EditInput const& input, Session& session);

/// Writes all that `data` reads, made of the input, to the file at `options.output`. Reports a
/// failure; false then.
bool writeEdited(
    EditOptions const& options, EditInput const& input, KXAbstractData& data, Session& session);

/// The same for the edited file in `data`, which was made from the input.
bool writeEdited(EditOptions const& options, EditInput const& input, KXMutableData const& data,
    Session& session);

/// Whether an edit may be made: `reason` says why the media would not survive it, and is only asked
/// where that matters. A refusal is reported.
bool isAllowed(EditOptions const& options, EditInput const& input,
    std::function<std::optional<std::string>()> const& reason, Session& session);

/// Tells in one line that `options.path` became `options.output`.
void reportEdit(EditOptions const& options, std::string const& what, std::uint64_t bytesBefore,
    std::uint64_t bytesAfter, Session& session);

/// Reports that nothing was written, and why.
void reportRefusal(EditOptions const& options, std::string const& reason, std::uint64_t bytesBefore,
    Session& session);

/// The same of what was read of the input; where that could not all be read, this is the reason.
void refuse(EditOptions const& options, EditInput const& input, std::string const& reason,
    Session& session);

/// The first again, only as JSON, if that is wanted: standard error has the reason already.
void writeRefusal(EditOptions const& options, std::string const& reason, std::uint64_t bytesBefore,
    Session& session);
