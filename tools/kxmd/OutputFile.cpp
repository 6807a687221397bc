#include "OutputFile.h"

#include "AtomicFile.h"
#include "Session.h"

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

/// Writes a file by `write`, which appends to it.
template <class Write>
bool writeWhole(
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
    if (file.open() && write(file) && file.commit())
        return true;
    session.reportError(path, file.error().empty() ? "the input changed" : file.error());
    return false;
}

}

bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    std::span<std::uint8_t const> bytes, Session& session)
{
    return writeWhole(
        path, inputs, [bytes](AtomicFile& file) { return file.write(bytes); }, session);
}

bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    KXAbstractData& data, Session& session)
{
    return writeWhole(
        path, inputs, [&data](AtomicFile& file) { return appendData(data, file); }, session);
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
