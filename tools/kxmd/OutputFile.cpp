#include "OutputFile.h"

#include "Session.h"
#include "tools/files/AtomicFile.h"

#include <kxmd/host/KXAbstractData.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

/// The file that `path` stands for: whoever names a link means what it leads to.
std::string pathBehindLinks(std::string const& path)
{
    std::error_code error;
    if (!std::filesystem::is_symlink(path, error))
        return path;
    auto const behind = std::filesystem::canonical(path, error);
    return error ? path : behind.string();
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
    AtomicFile file(pathBehindLinks(path));
    if (file.open() && write(file))
        return true;
    session.reportError(path, file.error().empty() ? "the input changed" : file.error());
    return false;
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
    KXAbstractData& data, Session& session)
{
    return withOutputFile(
        path, inputs, [&data](AtomicFile& file) { return appendData(data, file) && file.commit(); },
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
