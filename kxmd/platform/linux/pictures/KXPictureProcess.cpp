#include "kxmd/platform/linux/pictures/KXPictureProcessPrivate.h"

#include "kxmd/base/KXBigEndianPrivate.h"
#include "kxmd/base/KXSanitizersPrivate.h"
#include "kxmd/platform/linux/system/KXChildProcessPrivate.h"
#include "kxmd/platform/linux/system/KXLibraryFolderPrivate.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <span>
#include <utility>
#include <vector>

namespace {

// The sanitizers of a development build want memory of their own, terabytes of it.
#if KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER
constexpr std::uint64_t mostMemoryBytes = 0;
#else
constexpr std::uint64_t mostMemoryBytes = std::uint64_t { 1 } << 30;
#endif

constexpr std::chrono::seconds longestTime { 10 };
constexpr std::uint64_t mostOutputBytes = std::uint64_t { 1 } << 29; // 128 million pixels.

/// A length for the command line, where a fraction would be written as the user's language has it.
std::string wholePixels(double length)
{
    constexpr double longest = 1 << 20;
    return std::to_string(static_cast<int>(std::ceil(std::min(length, longest))));
}

/// What the program writes: width and height, 32 bits each, most significant byte first, and then
/// the pixels; nothing for what is not a picture.
KXImage::Ref imageOfOutput(KXData const& output)
{
    constexpr std::size_t headLength = 8;
    auto const bytes = output.bytes();
    if (bytes.size() < headLength)
        return nullptr;
    auto const pixels = bytes.subspan(headLength);
    return KXImage::imageWithPixels(std::vector<std::uint8_t>(pixels.begin(), pixels.end()),
        bigEndian32(bytes.first<4>()), bigEndian32(bytes.subspan<4, 4>()));
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
        = { _program, wholePixels(maximumSize.width), wholePixels(maximumSize.height), path },
        .deadline = longestTime,
        .mostOutputBytes = mostOutputBytes,
        .mostMemoryBytes = mostMemoryBytes,
    };
    auto const output = process.run();
    if (output && !output->length())
        return std::nullopt;
    return output ? imageOfOutput(*output) : nullptr;
}
