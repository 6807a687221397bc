// Adding, removing and replacing a cover of about 16 KB, on files of 10 and 200 MB: beside copying
// the file's bytes in memory, and, with reading and writing the file, beside TagLib's save. `ratio`
// is the time in such copies, measured in the same run.

#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/platform/KXPlatform.h"

#include <benchmark/benchmark.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4coverart.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr std::array sources { "plain.mp3", "cover-moov-first.m4a" };
constexpr std::array<std::size_t, 2> lengths { 10'000'000, 200'000'000 };
constexpr std::size_t spare = 1 << 20; // Bytes, as the library reads files that are to be edited.

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

bool isMP4(benchmark::State const& state) { return state.range(0) == 1; }

/// A real file, filled up to the length with what a reader of its format passes over.
Bytes fileOf(benchmark::State const& state)
{
    auto const index = static_cast<std::size_t>(state.range(0));
    std::ifstream source(std::string(KXMD_BENCH_MEDIA "/") + sources.at(index), std::ios::binary);
    Bytes bytes { std::istreambuf_iterator<char>(source), {} };
    std::size_t const length = lengths.at(static_cast<std::size_t>(state.range(1)));
    std::size_t const fill = length - bytes.size();
    bytes.reserve(length + spare);
    if (isMP4(state)) {
        for (int const shift : { 24, 16, 8, 0 })
            bytes.push_back(static_cast<std::uint8_t>(fill >> shift));
        for (char const letter : { 'f', 'r', 'e', 'e' })
            bytes.push_back(static_cast<std::uint8_t>(letter));
    }
    bytes.resize(length, 0x55);
    return bytes;
}

/// A picture that takes about 16 KB as JPEG.
KXImage::Ref cover()
{
    constexpr std::size_t side = 256;
    Bytes pixels(side * side * KXImage::bytesPerPixel, 255);
    std::uint32_t random = 1;
    for (std::size_t i = 0; i < side * side; ++i) {
        random = random * 1664525 + 1013904223;
        auto const light = static_cast<std::uint8_t>(i / side / 2 + i % side / 4 + (random >> 28));
        std::fill_n(&pixels[i * KXImage::bytesPerPixel], 3, light);
    }
    return KXImage::imageWithPixels(std::move(pixels), side, side);
}

/// Seconds to copy as many bytes, the best of a few.
double copyFloor(Bytes const& bytes)
{
    static Bytes target;
    target.resize(bytes.size());
    double best = 1e9;
    for (int i = 0; i < 5; ++i) {
        auto const start = Clock::now();
        std::memcpy(target.data(), bytes.data(), bytes.size());
        benchmark::DoNotOptimize(target.data());
        best = std::min(best, secondsSince(start));
    }
    return best;
}

/// Adds and removes in turn, and counts one of the two; the encoding of the picture counts as well.
void edit(benchmark::State& state, bool countsAdding)
{
    Bytes bytes = fileOf(state);
    double const floor = copyFloor(bytes);
    state.SetLabel(sources.at(static_cast<std::size_t>(state.range(0))));
    auto const image = cover();
    auto const data = std::make_shared<KXMutableData>(std::move(bytes));
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(
        *KXMutableAbstractData::abstractDataWithData(data));
    if (!meta->removeAlbumCoverFromData(data))
        return state.SkipWithError("cannot be edited");
    double total = 0;
    for (auto _ : state) {
        auto const start = Clock::now();
        bool const isAdded = meta->addAlbumCoverToData(image, data);
        double const adding = secondsSince(start);
        auto const middle = Clock::now();
        bool const isRemoved = meta->removeAlbumCoverFromData(data);
        double const counted = countsAdding ? adding : secondsSince(middle);
        if (!isAdded || !isRemoved)
            return state.SkipWithError("cannot be edited");
        state.SetIterationTime(counted);
        total += counted;
    }
    state.counters["cover"] = static_cast<double>(meta->albumCoverSizeForImage(image));
    state.counters["ratio"] = total / static_cast<double>(state.iterations()) / floor;
}

void addCover(benchmark::State& state) { edit(state, true); }
void removeCover(benchmark::State& state) { edit(state, false); }

/// Replaces a cover by the bytes of a larger one and puts the result in one row, as a host does
/// that holds files in memory.
void replaceCover(benchmark::State& state)
{
    auto const add = [](KXData const& picture, KXMutableData::Ref const& data) {
        auto const meta = KXMDFileMeta::fileMetaWithAbstractData(
            *KXMutableAbstractData::abstractDataWithData(data));
        return meta->addEncodedAlbumCoverToData(picture, data);
    };
    auto const encoded = KXPlatform::shared()->pictureLoader->jpgRepresentation(*cover());
    Bytes larger(encoded.bytes().begin(), encoded.bytes().end());
    larger.resize(larger.size() + 4096); // After the picture's end, where nobody looks.
    KXData const picture(std::move(larger));
    auto const covered = std::make_shared<KXMutableData>(fileOf(state));
    if (!add(encoded, covered))
        return state.SkipWithError("cannot be edited");
    auto const before = covered->bytes();
    double const floor = copyFloor({ before.begin(), before.end() });
    state.SetLabel(sources.at(static_cast<std::size_t>(state.range(0))));
    std::vector<double> seconds;
    for (auto _ : state) {
        Bytes bytes;
        bytes.reserve(before.size() + spare);
        bytes.assign(before.begin(), before.end());
        auto const start = Clock::now();
        auto const data = std::make_shared<KXMutableData>(std::move(bytes));
        bool const isReplaced = add(picture, data);
        benchmark::DoNotOptimize(data->bytes().data());
        seconds.push_back(secondsSince(start));
        if (!isReplaced)
            return state.SkipWithError("cannot be edited");
        state.SetIterationTime(seconds.back());
    }
    std::ranges::nth_element(seconds, seconds.begin() + seconds.size() / 2);
    state.counters["ratio"] = seconds[seconds.size() / 2] / floor;
}

/// What encoding the picture takes of that.
void encodeCover(benchmark::State& state)
{
    auto const image = cover();
    for (auto _ : state)
        benchmark::DoNotOptimize(KXPlatform::shared()->pictureLoader->jpgRepresentation(*image));
}

std::string writtenFile(benchmark::State const& state)
{
    Bytes const bytes = fileOf(state);
    std::string const path
        = KXMD_BENCH_MEDIA "/edited" + std::string(isMP4(state) ? ".m4a" : ".mp3");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<char const*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
    return path;
}

/// Reads a file, adds a cover and writes the file anew.
void addCoverToFile(benchmark::State& state)
{
    auto const image = cover();
    auto const files = KXPlatform::shared()->fileManager;
    std::string const path = writtenFile(state);
    state.SetLabel(sources.at(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        auto const data = files->mutableDataWithContentsOfFile(path);
        auto const meta = KXMDFileMeta::fileMetaWithAbstractData(
            *KXMutableAbstractData::abstractDataWithData(data));
        if (!meta->addAlbumCoverToData(image, data)
            || !files->writeBytesToFile(data->bytes(), path + ".new"))
            return state.SkipWithError("cannot be edited");
    }
    std::remove((path + ".new").c_str());
    std::remove(path.c_str());
}

void addCoverByTagLib(std::string const& path, TagLib::ByteVector const& picture, bool isMP4)
{
    if (isMP4) {
        TagLib::MP4::File file(path.c_str(), false);
        TagLib::MP4::CoverArtList covers;
        covers.append({ TagLib::MP4::CoverArt::JPEG, picture });
        file.tag()->setItem("covr", covers);
        file.save();
        return;
    }
    TagLib::MPEG::File file(path.c_str(), false);
    auto* const frame = new TagLib::ID3v2::AttachedPictureFrame; // The tag's from here on.
    frame->setMimeType("image/jpeg");
    frame->setPicture(picture);
    file.ID3v2Tag(true)->removeFrames("APIC");
    file.ID3v2Tag(true)->addFrame(frame);
    file.save();
}

/// The same edit in place by TagLib, on a fresh copy each time that is not counted.
void tagLibSave(benchmark::State& state)
{
    auto const encoded = KXPlatform::shared()->pictureLoader->jpgRepresentation(*cover());
    TagLib::ByteVector const picture(reinterpret_cast<char const*>(encoded.bytes().data()),
        static_cast<unsigned>(encoded.length()));
    state.SetLabel(sources.at(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        std::string const path = writtenFile(state);
        auto const start = Clock::now();
        addCoverByTagLib(path, picture, isMP4(state));
        state.SetIterationTime(secondsSince(start));
        std::remove(path.c_str());
    }
}

void filesAndLengths(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgsProduct({ { 0, 1 }, { 0, 1 } })->Unit(benchmark::kMillisecond);
}

BENCHMARK(encodeCover)->Unit(benchmark::kMillisecond);
BENCHMARK(addCover)->Apply(filesAndLengths)->UseManualTime();
BENCHMARK(removeCover)->Apply(filesAndLengths)->UseManualTime();
BENCHMARK(replaceCover)->Apply(filesAndLengths)->UseManualTime()->Iterations(15);
BENCHMARK(addCoverToFile)->Apply(filesAndLengths)->UseRealTime()->Iterations(3);
BENCHMARK(tagLibSave)->Apply(filesAndLengths)->UseManualTime()->Iterations(3);

}
