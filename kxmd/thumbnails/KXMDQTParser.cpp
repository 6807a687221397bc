#include "kxmd/thumbnails/KXMDQTParser.h"

#include "kxmd/base/KXMemoryDataPrivate.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <span>
#include <vector>

namespace {

constexpr std::size_t stepLength = 524'288; // Bytes that each attempt adds.
constexpr int mostAttempts = 3;

using Bytes = std::span<std::uint8_t const>;

/// Reads the next step of `data` to the end of `buffer`; returns how many bytes it had.
std::uint64_t appendStep(std::vector<std::uint8_t>& buffer, KXAbstractData& data)
{
    std::size_t const length = buffer.size();
    buffer.resize(length + stepLength);
    std::uint64_t const count = data.readBytesToMaxLength(buffer.data() + length, stepLength);
    buffer.resize(length + count);
    return count;
}

/// The poster time in a movie header, in seconds from the start.
///
/// QuickTime File Format, "Movie Header Atoms". Where that has the poster time, ISO/IEC 14496-12,
/// 8.2.2 has zeros, which mean the start as well; its version 1 widens the times to 64 bits.
double posterTimeInHeader(KXMP4Atom const& header, KXAbstractData& data)
{
    constexpr std::uint64_t headerLength = 8; // Size and type.
    data.setOffset(header.offset() + headerLength);
    std::uint64_t const timeLength = data.readUInt8OrZero() == 1 ? 8 : 4;
    data.skipBytes(3 + 2 * timeLength); // Flags; creation and modification time.
    std::uint32_t const timeScale = data.readUInt32OrZero(KXSwap::yes); // Ticks per second.
    data.skipBytes(timeLength + 4 + 2 + 10); // Duration, rate, volume, reserved.
    data.skipBytes(36 + 4 + 4); // Matrix, time and duration of the preview.
    std::uint32_t const posterTime = data.readUInt32OrZero(KXSwap::yes); // Ticks.
    bool const isInside = data.offset() <= header.offset() + header.size();
    return timeScale && isInside ? static_cast<double>(posterTime) / timeScale : 0;
}

/// Where the movie says that its poster frame is, in seconds from the start; 0 if it does not say.
double posterTimeOfMovie(Bytes bytes)
{
    KXMemoryData data(bytes); // Not the movie's reader, which is in use.
    auto const headers = KXMP4Atom::atomWithAbstractData(data)->allAtomsWithPath("moov/mvhd");
    return headers.empty() ? 0 : posterTimeInHeader(*headers.front(), data);
}

/// The poster frame of the movie whose first bytes these are, or else its first frame.
///
/// An error is never forgotten: after one, later attempts give nothing even where their bytes make
/// a movie. Deliberate.
KXImage::Ref imageInStart(Bytes bytes, KXMovieLoader const& loader, bool& hadError)
{
    KXMemoryData data(bytes);
    auto const movie = loader.movieWithData(data);
    hadError = hadError || !movie;
    if (hadError)
        return nullptr;
    auto poster = movie->imageAtTime(posterTimeOfMovie(bytes), {});
    return poster ? poster : movie->imageAtTime(0, {});
}

}

KXMDQTParser::KXMDQTParser(KXPlatform::Ref platform)
    : _platform(platform ? std::move(platform) : KXPlatform::shared())
{
}

bool KXMDQTParser::parseAbstractData(KXAbstractData& data)
{
    std::vector<std::uint8_t> buffer;
    bool hadError = false;
    data.setOffset(0);
    for (int attempt = 1; attempt <= mostAttempts; ++attempt) {
        std::uint64_t const count = appendStep(buffer, data);
        if (!count)
            return false;
        if (auto image = imageInStart(buffer, *_platform->movieLoader, hadError)) {
            setThumbnail(std::move(image));
            return true;
        }
        if (count < stepLength) // That was the end of the file.
            return false;
    }
    return false;
}
