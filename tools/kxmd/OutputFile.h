#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

class AtomicFile;
class KXAbstractData;
class KXMutableData;
class Session;
class SourceFile;

/// Writes a result to the file at `path`, beside it first and then renamed into place, so that an
/// interrupted run leaves no half file. Refuses to write over one of `inputs`, by whatever name.
/// Reports what goes wrong; false then.
bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    std::span<std::uint8_t const> bytes, Session& session);

/// The same for all that `data` reads, made of `source`; not if that has changed by then.
bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    SourceFile const& source, KXAbstractData& data, Session& session);

/// The same for the edited file in `data`, which was made from `source`.
bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    SourceFile const& source, KXMutableData const& data, Session& session);

/// The same for what `write` writes to an open file, bit by bit. Its answer is false when that
/// fails; then nothing is left.
bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    std::function<bool(AtomicFile&)> const& write, Session& session);

/// Whether a result can be written there at all, asked before the work; reports why not.
bool canWriteOutputFile(
    std::string const& path, std::vector<std::string> const& inputs, Session& session);

/// Writes `bytes` into the empty file that is at `path`: whoever made it may hold it open and read
/// it there, and would never see a file that takes its place. False when there is none, or one that
/// has other names, or when writing fails; the file is empty then.
[[nodiscard]] bool fillEmptyFile(std::string const& path, std::span<std::uint8_t const> bytes);
