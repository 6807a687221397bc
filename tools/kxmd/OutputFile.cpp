#include "OutputFile.h"

#include "Session.h"
#include "SourceFile.h"
#include "tools/shared/AtomicFile.h"

#include <kxmd/base/KXAbstractData.h>
#include <kxmd/base/KXMutableData.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <system_error>

namespace {

/// The file that `path` stands for: whoever names a link means what it leads to, be it there or
/// not. Absent for links that lead back to themselves.
std::optional<std::string> pathWithoutLinks(std::string const& path)
{
    constexpr int mostLinks = 40; // As many as the kernel follows.
    std::filesystem::path target(path);
    std::error_code error;
    for (int i = 0; i < mostLinks; ++i) {
        if (!std::filesystem::is_symlink(target, error))
            return target.string();
        target = target.parent_path() / std::filesystem::read_symlink(target, error);
    }
    return std::nullopt;
}

/// Those that all of `inputs` have: nobody reads in a result what was hidden before.
mode_t commonPermissions(std::vector<std::string> const& inputs)
{
    mode_t permissions = 0666;
    for (std::string const& input : inputs) {
        struct stat status;
        if (::stat(input.c_str(), &status) == 0)
            permissions &= status.st_mode;
    }
    return permissions;
}

/// Hands the file for `path` to `write`, which writes it, unless it is one of `inputs`.
template <class Write>
bool withOutputFile(
    std::string const& path, std::vector<std::string> const& inputs, Write write, Session& session)
{
    bool const isInput = std::ranges::any_of(inputs, [&path](std::string const& input) {
        std::error_code ignored; // A path that does not exist yet is another file.
        return std::filesystem::equivalent(path, input, ignored);
    });
    if (isInput) {
        session.reportError(path, "is the input itself");
        return false;
    }
    auto const target = pathWithoutLinks(path);
    if (!target) {
        session.reportError(path, std::strerror(ELOOP));
        return false;
    }
    AtomicFile file(*target);
    if (file.open(commonPermissions(inputs)) && write(file))
        return true;
    if (file.readError())
        session.reportError(inputs.front(), problemOfReading(file.readError()));
    else if (file.error().empty())
        session.reportError(inputs.front(), "changed while it was read");
    else
        session.reportError(path, file.error());
    return false;
}

using Kept = KXMutableData::Kept;
using Range = KXMutableData::Range;

/// The part of `kept` from its byte `begin` to before `end`, both counted in the source.
Kept partOf(Kept const& kept, std::uint64_t begin, std::uint64_t end)
{
    return {
        .origin = begin, .position = kept.position + (begin - kept.origin), .length = end - begin
    };
}

/// The stretches of the source that are in `data` as they were, in order. Edits move none past
/// another.
std::vector<Kept> unchangedParts(KXMutableData const& data)
{
    std::vector<Range> overwritten(
        data.overwrittenOrigins().begin(), data.overwrittenOrigins().end());
    std::ranges::sort(overwritten, {}, &Range::position);
    std::vector<Kept> parts;
    auto next = overwritten.begin();
    std::uint64_t origin = 0; // What is before it is done, or overwritten.
    for (Kept const& kept : data.keptBytes()) {
        std::uint64_t const end = kept.origin + kept.length;
        origin = std::max(origin, kept.origin);
        for (; next != overwritten.end() && next->position < end; ++next) {
            if (next->position > origin)
                parts.push_back(partOf(kept, origin, next->position));
            origin = std::max(origin, next->position + next->length);
        }
        if (origin < end)
            parts.push_back(partOf(kept, origin, end));
    }
    return parts;
}

/// Appends the bytes of `data` from `begin` to before `end`, which are in memory.
bool appendBytes(
    KXMutableData const& data, std::uint64_t begin, std::uint64_t end, AtomicFile& file)
{
    constexpr std::uint64_t pieceLength = 64 * 1024;
    std::vector<std::uint8_t> piece(std::min(pieceLength, end - begin));
    for (std::uint64_t count; begin < end; begin += count) {
        count = std::min<std::uint64_t>(piece.size(), end - begin);
        if (!data.readBytesToAt(piece.data(), count, begin)
            || !file.write(std::span(piece).first(count)))
            return false;
    }
    return true;
}

}

bool canWriteOutputFile(
    std::string const& path, std::vector<std::string> const& inputs, Session& session)
{
    return withOutputFile(
        path, inputs, [](AtomicFile const&) { return true; }, session);
}

bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    std::span<std::uint8_t const> bytes, Session& session)
{
    return withOutputFile(
        path, inputs, [bytes](AtomicFile& file) { return file.write(bytes) && file.commit(); },
        session);
}

bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    SourceFile const& source, KXAbstractData& data, Session& session)
{
    return withOutputFile(
        path, inputs,
        [&](AtomicFile& file) {
            return appendData(data, file) && !source.hasChanged() && file.commit();
        },
        session);
}

bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    SourceFile const& source, KXMutableData const& data, Session& session)
{
    return withOutputFile(
        path, inputs,
        [&](AtomicFile& file) {
            return appendEdited(data, source.descriptor(), file) && !source.hasChanged()
                && file.commit();
        },
        session);
}

bool appendData(KXAbstractData& data, AtomicFile& file)
{
    constexpr std::size_t pieceLength = 1 << 20;
    std::vector<std::uint8_t> piece(std::min<std::uint64_t>(pieceLength, data.length()));
    data.setOffset(0);
    while (data.remainingLength()) {
        std::uint64_t const count = data.readBytesToMaxLength(piece.data(), piece.size());
        if (!count || !file.write(std::span(piece).first(count)))
            return false;
    }
    return true;
}

bool appendEdited(KXMutableData const& data, int descriptor, AtomicFile& file)
{
    std::uint64_t position = 0;
    for (Kept const& part : unchangedParts(data)) {
        if (!appendBytes(data, position, part.position, file)
            || !file.writeRangeOf(descriptor, part.origin, part.length))
            return false;
        position = part.position + part.length;
    }
    return appendBytes(data, position, data.length(), file);
}
