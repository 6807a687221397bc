#include "support/Movies.h"

#include <utility>

using namespace build;

namespace movies {

namespace {

    constexpr std::uint32_t framesPerSecond = 10;

    Bytes matrixOf(std::array<std::int32_t, 4> const& matrix)
    {
        auto const fixed
            = [](std::int32_t value) { return u32(static_cast<std::uint32_t>(value) << 16); };
        return join(fixed(matrix[0]), fixed(matrix[1]), u32(0), fixed(matrix[2]), fixed(matrix[3]),
            u32(0), zeros(8), u32(1u << 30));
    }

    Bytes movieHeader(Movie const& movie, std::uint32_t duration)
    {
        return atom("mvhd", zeros(12), u32(framesPerSecond), u32(duration), u32(0x10000),
            u16(0x100), zeros(10), matrixOf({ 1, 0, 0, 1 }), zeros(8), u32(movie.posterTime),
            zeros(12), u32(2));
    }

    Bytes trackHeader(Movie const& movie, std::uint32_t number, std::uint32_t duration)
    {
        return atom("tkhd", u32(movie.isEnabled ? 7 : 6), zeros(8), u32(number), zeros(4),
            u32(duration), zeros(16), matrixOf(movie.matrix), u32(movie.width << 16),
            u32(movie.height << 16));
    }

    Bytes sampleEntry(Movie const& movie)
    {
        return atom(movie.codec, zeros(6), u16(1), zeros(16), u16(movie.width), u16(movie.height),
            u32(72u << 16), u32(72u << 16), u32(0), u16(1), zeros(32), u16(movie.depth),
            u16(0xFFFF), movie.entryChildren);
    }

    Bytes table(std::string_view type, std::vector<std::uint32_t> const& values)
    {
        std::vector<Bytes> numbers;
        for (std::uint32_t const value : values)
            numbers.push_back(u32(value));
        return atom(
            type, u32(0), u32(static_cast<std::uint32_t>(values.size())), concatenated(numbers));
    }

    Bytes sampleTable(Movie const& movie, std::uint32_t mediaOffset)
    {
        auto const count = static_cast<std::uint32_t>(movie.frames.size());
        std::vector<Bytes> sizes;
        for (Bytes const& frame : movie.frames)
            sizes.push_back(u32(static_cast<std::uint32_t>(frame.size())));
        return atom("stbl", stsd(sampleEntry(movie)),
            atom("stts", u32(0), u32(1), u32(count), u32(1)),
            movie.keyFrames.empty() ? Bytes() : table("stss", movie.keyFrames),
            atom("stsc", u32(0), u32(1), u32(1), u32(count), u32(1)),
            atom("stsz", u32(0), u32(0), u32(count), concatenated(sizes)), stco({ mediaOffset }));
    }

    Bytes trackOf(Movie const& movie, std::uint32_t number, std::uint32_t mediaOffset)
    {
        auto const duration = static_cast<std::uint32_t>(movie.frames.size());
        Bytes const mediaHeader
            = atom("mdhd", zeros(12), u32(framesPerSecond), u32(duration), zeros(4));
        Bytes const media = atom("mdia", mediaHeader, hdlr("vide"),
            atom("minf", atom("vmhd", u32(1), zeros(8)), sampleTable(movie, mediaOffset)));
        return atom("trak", trackHeader(movie, number, duration), movie.trackChildren, media);
    }

    Bytes header(Movie const& movie, std::uint32_t mediaOffset)
    {
        std::uint32_t number = 1;
        Bytes tracks = trackOf(movie, number, mediaOffset);
        Movie const* before = &movie;
        for (Movie const& other : movie.otherTracks) {
            mediaOffset += static_cast<std::uint32_t>(concatenated(before->frames).size());
            before = &other;
            tracks = join(std::move(tracks), trackOf(other, ++number, mediaOffset));
        }
        return atom("moov", movieHeader(movie, static_cast<std::uint32_t>(movie.frames.size())),
            movie.atomsInFront, tracks, movie.userData);
    }

}

Bytes Movie::file() const
{
    Bytes const type = atom("ftyp", text("qt  "), zeros(4), text("qt  "));
    Bytes content = concatenated(frames);
    for (Movie const& other : otherTracks)
        content = join(content, concatenated(other.frames));
    Bytes const media = atom("mdat", content);
    auto const headerLength = isHeaderLast ? 0 : header(*this, 0).size();
    auto const mediaOffset = static_cast<std::uint32_t>(type.size() + headerLength + 8);
    Bytes const moov = header(*this, mediaOffset);
    return isHeaderLast ? join(type, media, moov) : join(type, moov, media);
}

Bytes solidRGB(std::uint32_t width, std::uint32_t height, std::array<std::uint8_t, 3> const& colour)
{
    return concatenated(
        std::vector<Bytes>(std::size_t { width } * height, Bytes(colour.begin(), colour.end())));
}

Bytes solidUYVY(std::uint32_t width, std::uint32_t height, std::uint8_t luma,
    std::uint8_t blueDifference, std::uint8_t redDifference)
{
    Bytes const twoPixels { blueDifference, luma, redDifference, luma };
    return concatenated(std::vector<Bytes>(std::size_t { width } * height / 2, twoPixels));
}

Bytes greyV210(std::uint32_t height, std::uint32_t luma)
{
    constexpr std::uint32_t neutral = 512;
    auto const word = [](std::uint32_t one, std::uint32_t two, std::uint32_t three) {
        std::uint32_t const bits = one | two << 10 | three << 20;
        return Bytes { static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8),
            static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 24) };
    };
    // Six pixels: Cb Y Cr, Y Cb Y, Cr Y Cb, Y Cr Y.
    Bytes const sixPixels = join(word(neutral, luma, neutral), word(luma, neutral, luma),
        word(neutral, luma, neutral), word(luma, neutral, luma));
    return concatenated(std::vector<Bytes>(std::size_t { height } * 8, sixPixels));
}

Bytes pixelAspect(std::uint32_t horizontal, std::uint32_t vertical)
{
    return atom("pasp", u32(horizontal), u32(vertical));
}

Bytes colours(std::uint32_t primaries, std::uint32_t transfer, std::uint32_t matrix)
{
    return atom("colr", text("nclc"), u16(primaries), u16(transfer), u16(matrix));
}

}
