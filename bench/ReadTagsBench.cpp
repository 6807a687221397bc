// Reading a file's tags, beside the least that any reader must ask of the kernel and beside TagLib.
// The first argument is the file. `ratio` is the time in floors of the same file, measured in the
// same run.

#include "kxmd/core/KXMDFileMeta.h"
#include "support/SystemCalls.h"

#include <benchmark/benchmark.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>

#include <array>
#include <chrono>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::array files {
    "plain.mp3",
    "cover.mp3",
    "cover-moov-first.m4a",
    "cover-moov-last.m4a",
    "video.mp4",
};

std::string pathOf(benchmark::State const& state)
{
    return std::string(KXMD_BENCH_MEDIA "/") + files.at(static_cast<std::size_t>(state.range(0)));
}

/// Opens the file, asks for its size, reads once from its head and closes it.
void readHead(char const* path)
{
    std::array<char, 4096> head;
    int const descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat status;
    benchmark::DoNotOptimize(::fstat(descriptor, &status));
    benchmark::DoNotOptimize(::pread(descriptor, head.data(), head.size(), 0));
    ::close(descriptor);
}

/// Nanoseconds of `readHead` right now: the machine's speed drifts, so every ratio has a fresh
/// floor.
double floorNanoseconds(char const* path)
{
    using Clock = std::chrono::steady_clock;
    constexpr int rounds = 20'000;
    auto const start = Clock::now();
    for (int i = 0; i < rounds; ++i)
        readHead(path);
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / rounds;
}

template <class Work> void measure(benchmark::State& state, Work work)
{
    std::string const path = pathOf(state);
    state.SetLabel(files.at(static_cast<std::size_t>(state.range(0))));
    double const floor = floorNanoseconds(path.c_str());
    auto const before = SystemCalls::soFar();
    auto const start = std::chrono::steady_clock::now();
    for ([[maybe_unused]] auto _ : state)
        work(path);
    std::chrono::duration<double, std::nano> const spent = std::chrono::steady_clock::now() - start;
    auto const asked = SystemCalls::soFar() - before;
    auto const rounds = static_cast<double>(state.iterations());
    state.counters["ratio"] = spent.count() / rounds / floor;
    state.counters["calls"] = static_cast<double>(asked.calls) / rounds;
    state.counters["bytes"] = static_cast<double>(asked.bytesRead) / rounds;
}

void floorOfTheKernel(benchmark::State& state)
{
    measure(state, [](std::string const& path) { readHead(path.c_str()); });
}

void fileMetaWithSourcePath(benchmark::State& state)
{
    measure(state, [](std::string const& path) {
        benchmark::DoNotOptimize(KXMDFileMeta::fileMetaWithSourcePath(path));
    });
}

template <class File> void readWithTagLib(std::string const& path)
{
    constexpr bool readAudioProperties = false;
    File const file(path.c_str(), readAudioProperties);
    benchmark::DoNotOptimize(file.tag()->title());
}

void tagLib(benchmark::State& state)
{
    measure(state, [](std::string const& path) {
        if (path.ends_with(".mp3"))
            readWithTagLib<TagLib::MPEG::File>(path);
        else
            readWithTagLib<TagLib::MP4::File>(path);
    });
    // It reads through the C library's streams, whose calls are not seen here.
    state.counters.erase("calls");
    state.counters.erase("bytes");
}

}

BENCHMARK(floorOfTheKernel)->DenseRange(0, files.size() - 1);
BENCHMARK(fileMetaWithSourcePath)->DenseRange(0, files.size() - 1);
BENCHMARK(tagLib)->DenseRange(0, files.size() - 1);
