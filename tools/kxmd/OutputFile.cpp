#include "OutputFile.h"

#include "Session.h"
#include "shared/AtomicFile.h"
#include "shared/EditedCopy.h"
#include "shared/FileSystemLimits.h"
#include "shared/PathWithoutLinks.h"
#include "shared/RangeCopy.h"
#include "shared/SourceFile.h"

#include <kxmd/base/KXAbstractData.h>
#include <kxmd/base/KXMutableData.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>

namespace {

/// Those of the first of `inputs`, for readers of all: nobody reads in a result what was hidden
/// before.
mode_t commonPermissions(std::vector<std::string> const& inputs)
{
    constexpr mode_t toRead = 0444, all = 0666;
    mode_t permissions = all;
    for (std::string const& input : inputs) {
        bool const isFirst = &input == &inputs.front();
        struct stat status;
        if (::stat(input.c_str(), &status) == 0)
            permissions &= isFirst ? status.st_mode : status.st_mode | ~toRead;
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

}

bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    std::function<bool(AtomicFile&)> const& write, Session& session)
{
    return withOutputFile(
        path, inputs, [&write](AtomicFile& file) { return write(file) && file.commit(); }, session);
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

bool fillEmptyFile(std::string const& path, std::span<std::uint8_t const> bytes)
{
    auto const isEmptyFile = [](struct stat const& status) {
        return S_ISREG(status.st_mode) && status.st_size == 0 && status.st_nlink == 1;
    };
    struct stat status;
    if (::stat(path.c_str(), &status) != 0 || !isEmptyFile(status))
        return false;
    int const descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor < 0)
        return false;
    // It may have become another file since.
    bool const isEmpty = ::fstat(descriptor, &status) == 0 && isEmptyFile(status);
    bool const isWritten = isEmpty && writeAll(descriptor, bytes)
        && (::fdatasync(descriptor) == 0 || isUnknownToFileSystem(errno))
        && ::close(::dup(descriptor)) == 0; // Some file systems only tell now that they are full.
    if (isEmpty && !isWritten)
        std::ignore = ::ftruncate(descriptor, 0); // Where even that fails, nothing would help.
    ::close(descriptor);
    return isWritten;
}
