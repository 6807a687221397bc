#include "kxmd/platform/linux/KXPictureProcessPrivate.h"

#include "kxmd/platform/linux/KXChildProcessPrivate.h"
#include "kxmd/platform/linux/KXLibraryFolderPrivate.h"

#include <span>
#include <utility>
#include <vector>

namespace {

// The sanitizers of a development build want memory of their own, terabytes of it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::uint64_t mostMemoryBytes = 0;
#else
constexpr std::uint64_t mostMemoryBytes = std::uint64_t { 1 } << 30;
#endif

std::size_t numberAt(std::span<std::uint8_t const> bytes)
{
    std::size_t number = 0;
    for (std::uint8_t const byte : bytes.first(4))
        number = number << 8 | byte;
    return number;
}

/// What the program writes: width and height, 32 bits each, most significant byte first, and then
/// the pixels; nothing for what is no picture.
KXImage::Ref imageOfOutput(KXData const& output)
{
    constexpr std::size_t headLength = 8;
    auto const bytes = output.bytes();
    if (bytes.size() < headLength)
        return nullptr;
    auto const pixels = bytes.subspan(headLength);
    return KXImage::imageWithPixels(std::vector<std::uint8_t>(pixels.begin(), pixels.end()),
        numberAt(bytes), numberAt(bytes.subspan(4)));
}

}

KXPictureProcess::KXPictureProcess(std::string program)
    : _program(std::move(program))
{
}

std::string KXPictureProcess::installedProgram() { return pathBesideLibrary(KXMD_RENDER_PROGRAM); }

std::optional<KXImage::Ref> KXPictureProcess::imageForPath(
    std::string const& path, KXSize maximumSize) const
{
    KXChildProcess const process {
        .arguments
        = { _program, std::to_string(maximumSize.width), std::to_string(maximumSize.height), path },
        .mostMemoryBytes = mostMemoryBytes,
    };
    auto const output = process.run();
    if (output && !output->length())
        return std::nullopt;
    return output ? imageOfOutput(*output) : nullptr;
}
