#include "Conversion.h"

#include "Arguments.h"
#include "AudioReader.h"
#include "AudioWriter.h"
#include "ConfinedWork.h"
#include "CoverPicture.h"
#include "shared/AtomicFile.h"
#include "tools/shared/CleanUpOnSignal.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <kxmd/base/KXAbstractData.h>
#include <sys/stat.h>
#include <utility>

extern "C" {
#include <libavutil/error.h>
}

std::string textOfError(int code)
{
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text {};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

int checked(int code, char const* what)
{
    if (code < 0)
        throw ConversionError(std::string(what) + ": " + textOfError(code));
    return code;
}

namespace {

void checkTarget(AtomicFile const& target, bool isDone)
{
    if (!isDone)
        throw ConversionError(target.errorWithPath());
}

/// Anything but a regular file may wait for somebody to write to it, for ever. So may a file of the
/// kernel's log, which passes for a regular one of no bytes.
void checkRegularFile(std::string const& path)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        return; // What is wrong is said when it is opened.
    if (!S_ISREG(status.st_mode))
        throw ConversionError("is not a regular file");
    if (status.st_size == 0)
        throw ConversionError("is empty");
}

KXAbstractData::Ref openedSource(std::string const& path)
{
    checkRegularFile(path);
    auto data = KXAbstractData::abstractDataWithPath(path);
    if (!data)
        throw ConversionError(std::string("cannot be opened: ") + std::strerror(errno));
    return data;
}

/// The most seconds of audio that are made of a source: a few bytes may claim days of silence. No
/// codec of speech has fewer bytes for a second; and 25 minutes of silence leave nothing.
double mostSecondsOf(std::uint64_t sourceLength)
{
    constexpr double silence = 25 * 60, fewestBytesPerSecond = 400;
    return silence + static_cast<double>(sourceLength) / fewestBytesPerSecond;
}

WorkLimits limitsOfConversion(std::uint64_t sourceLength)
{
    constexpr std::uint64_t mebibyte = 1 << 20;
    constexpr double mostBytesPerSecond = 8 * 48'000; // Of AAC, for each of eight channels.
    double const seconds = mostSecondsOf(sourceLength);
    return { .memory = 512 * mebibyte,
        .longestFile = static_cast<std::uint64_t>(seconds * mostBytesPerSecond) + 64 * mebibyte,
        .seconds = 30,
        .secondsOfAudio = seconds };
}

/// Until there is somebody to clean up after them.
void holdSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (int const signal : { SIGHUP, SIGINT, SIGTERM })
        sigaddset(&signals, signal);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void convertInto(int target, KXAbstractData& source, std::int64_t bitRate, WorkProgress& progress)
{
    double const mostSeconds = mostSecondsOf(source.length());
    AudioReader reader(source);
    AudioWriter writer(target, reader.decoder(), bitRate);
    writer.addTags(reader.fileTags());
    writer.addTags(reader.streamTags()); // Where Ogg keeps them.
    auto cover = reader.cover();
    if (!cover) {
        std::uint64_t const offset = source.offset(); // The reader's.
        cover = coverOfMP4File(source);
        source.setOffset(offset);
    }
    if (cover)
        writer.addCover(std::move(*cover));
    writer.begin();
    while (auto const* const frame = reader.nextFrame()) {
        if (reader.secondsDecoded() > mostSeconds)
            throw ConversionError("claims more hours than its bytes can hold");
        writer.write(*frame);
        progress = reader.secondsDecoded();
    }
    writer.finish();
}

}

void convert(Arguments const& arguments)
{
    std::error_code ignored; // A target that does not exist yet is another file.
    if (std::filesystem::equivalent(arguments.source, arguments.target, ignored))
        throw ConversionError("is its own target");
    auto const source = openedSource(arguments.source);
    holdSignals();
    AtomicFile target(arguments.target);
    checkTarget(target, target.open());
    ConfinedWork work(limitsOfConversion(source->length()), [&](WorkProgress& progress) {
        convertInto(target.descriptor(), *source, arguments.bitRate, progress);
    });
    CleanUpOnSignal const cleanUp(removePartsForGood); // Has a thread, so it comes after the fork.
    work.finish();
    checkTarget(target, target.commit());
}
