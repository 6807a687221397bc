// Thumbnails of photographs and movies: beside what the codec itself takes to decode them, and, as
// whole processes, beside the programs that desktops run for it. `ratio` is the time in decodings
// of the codec, measured in the same run.

#include "DecodeFloors.h"

#include "kxmd/thumbnails/KXMDThumbnailController.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern "C" {
#include <libavutil/log.h>
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::array files {
    "12mp.jpg",
    "24mp.jpg",
    "9mp.png",
    "12mp.webp",
    "12mp.heic",
    "1080p.mp4",
    "2160p.mp4",
};

std::string fileOf(benchmark::State const& state)
{
    return files.at(static_cast<std::size_t>(state.range(0)));
}

std::string pathOf(benchmark::State const& state)
{
    return std::string(KXMD_BENCH_PICTURES "/") + fileOf(state);
}

/// Seconds that the codec takes for a file, the best of some.
double floorOf(std::string const& path, int side)
{
    static std::map<std::pair<std::string, int>, double> floors;
    auto const [known, isNew] = floors.emplace(std::pair(path, side), 1e9);
    for (int i = 0; isNew && i < 15; ++i) {
        auto const start = Clock::now();
        if (!decodeByCodec(path, side))
            return 0;
        known->second
            = std::min(known->second, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return known->second;
}

bool isThere(benchmark::State& state)
{
    state.SetLabel(fileOf(state));
    bool const isThere = std::filesystem::exists(pathOf(state));
    if (!isThere)
        state.SkipWithError("has not been made");
    return isThere;
}

/// A decoded file without the library: what `ratio` is told in.
void Floor(benchmark::State& state)
{
    if (!isThere(state))
        return;
    for (auto _ : state)
        benchmark::DoNotOptimize(decodeByCodec(pathOf(state), static_cast<int>(state.range(1))));
}

/// Measures how a picture is made for a path and a size, and how its best time compares with the
/// codec's: means would compare what else the machine does.
template <class Make> void measureBesideFloor(benchmark::State& state, Make const& make)
{
    if (!isThere(state))
        return;
    auto const side = static_cast<double>(state.range(1));
    std::string const path = pathOf(state);
    double const floor = floorOf(path, static_cast<int>(state.range(1)));
    double best = 1e9;
    for (auto _ : state) {
        auto const start = Clock::now();
        auto const image = make(path, KXSize { side, side });
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
        if (!image)
            return state.SkipWithError("has no picture");
        benchmark::DoNotOptimize(image);
    }
    state.counters["best_ms"] = best * 1000;
    state.counters["ratio"] = best / floor;
}

void Thumbnail(benchmark::State& state)
{
    auto const service = KXPlatform::shared()->thumbnailService;
    measureBesideFloor(
        state, [&](auto const& path, KXSize size) { return service->imageForPath(path, size); });
}

/// As hosts ask for it: a square.
void ControllerThumbnail(benchmark::State& state)
{
    constexpr std::size_t nothing = 0; // Bytes that the cache keeps.
    auto const controller
        = KXMDThumbnailController::createWithPlatform(KXPlatform::shared(), nothing);
    measureBesideFloor(state,
        [&](auto const& path, KXSize size) { return controller->thumbnailForPath(path, size); });
}

void FilesAndSides(benchmark::internal::Benchmark* benchmark)
{
    for (std::size_t i = 0; i < files.size(); ++i) {
        for (int const side : { 256, 512 })
            benchmark->Args({ static_cast<std::int64_t>(i), side });
    }
    benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(Floor)->Apply(FilesAndSides);
BENCHMARK(Thumbnail)->Apply(FilesAndSides);
BENCHMARK(ControllerThumbnail)->Apply(FilesAndSides);

// Whole processes.

struct Program {
    char const* name;
    std::vector<std::string> words; ///< IN and OUT stand for the files.
};

std::vector<Program> const& programs()
{
    static std::vector<Program> const programs {
        { "kxmd", { KXMD_COMMAND, "thumbnail", "IN", "-s", "256x256", "-o", "OUT" } },
        { "gdk-pixbuf", { "gdk-pixbuf-thumbnailer", "-s", "256", "IN", "OUT" } },
        { "ffmpegthumbnailer",
            { "ffmpegthumbnailer", "-i", "IN", "-o", "OUT", "-s", "256", "-t", "0" } },
        { "ImageMagick", { "convert", "IN[0]", "-thumbnail", "256x256", "OUT" } },
        { "libvips", { "vipsthumbnail", "IN", "--size", "256", "-o", "OUT" } },
    };
    return programs;
}

/// Runs a program with its output thrown away; whether it ended well.
bool run(std::vector<std::string> const& words)
{
    std::vector<char*> arguments;
    for (std::string const& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int const stream : { 1, 2 })
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", 01, 0);
    pid_t child;
    int status = -1;
    if (posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0)
        waitpid(child, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    return status == 0;
}

std::vector<std::string> filledIn(
    std::vector<std::string> words, std::string const& in, std::string const& out)
{
    for (std::string& word : words) {
        if (word.starts_with("IN"))
            word.replace(0, 2, in);
        else if (word == "OUT")
            word = out;
    }
    return words;
}

/// Processor seconds of the children that have ended.
double secondsOfChildren()
{
    rusage usage;
    getrusage(RUSAGE_CHILDREN, &usage);
    auto const seconds = [](timeval const& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void Process(benchmark::State& state)
{
    Program const& program = programs().at(static_cast<std::size_t>(state.range(1)));
    if (!isThere(state))
        return;
    state.SetLabel(fileOf(state) + " " + program.name);
    auto const words = filledIn(program.words, pathOf(state), KXMD_BENCH_PICTURES "/out.png");
    if (!run(words))
        return state.SkipWithError("is not installed or cannot show it");
    double const before = secondsOfChildren();
    for (auto _ : state)
        run(words);
    state.counters["cpu_ms"]
        = 1000 * (secondsOfChildren() - before) / static_cast<double>(state.iterations());
}

void FilesAndPrograms(benchmark::internal::Benchmark* benchmark)
{
    for (std::size_t file = 0; file < files.size(); ++file) {
        for (std::size_t program = 0; program < programs().size(); ++program)
            benchmark->Args(
                { static_cast<std::int64_t>(file), static_cast<std::int64_t>(program) });
    }
    benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(Process)->Apply(FilesAndPrograms);

/// What a host pays at its start: a program that reads the tags of one file, and one that does
/// nothing.
void StartUp(benchmark::State& state)
{
    std::vector<std::string> const words = state.range(0)
        ? std::vector<std::string> { KXMD_READ_TAGS, KXMD_BENCH_PICTURES "/1080p.mp4" }
        : std::vector<std::string> { "/bin/true" };
    state.SetLabel(state.range(0) ? "reads one tag" : "does nothing");
    for (auto _ : state)
        run(words);
}
BENCHMARK(StartUp)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// What is in the cache.

KXImage::Ref anyImage(KXSize size) { return KXImage::imageWithSize(size); }

void CacheHit(benchmark::State& state)
{
    auto const controller = KXMDThumbnailController::createWithPlatform(KXPlatform::shared());
    KXSize const size { 256, 256 };
    controller->setThumbnailForPath("/any/path", anyImage(size), size);
    for (auto _ : state)
        benchmark::DoNotOptimize(controller->thumbnailForPath("/any/path", size));
}
BENCHMARK(CacheHit);

/// A composite of four pictures that are in the cache, itself not.
void Composite(benchmark::State& state)
{
    KXSize const size { 256, 256 };
    for (auto _ : state) {
        state.PauseTiming();
        auto const controller = KXMDThumbnailController::createWithPlatform(KXPlatform::shared());
        KXMDThumbnailController::Files tracks;
        for (char const* const path : { "/1", "/2", "/3", "/4" }) {
            controller->setThumbnailForPath(path, anyImage(size), size);
            tracks.push_back(std::make_shared<KXDCSimpleFile>(path));
        }
        state.ResumeTiming();
        benchmark::DoNotOptimize(controller->compositeThumbnailForFiles(tracks, size));
    }
}
BENCHMARK(Composite)->Unit(benchmark::kMicrosecond);

}

int main(int argumentCount, char** arguments)
{
    if (!std::filesystem::exists(KXMD_BENCH_PICTURES "/done")
        && std::system(KXMD_MAKE_PICTURES " " KXMD_BENCH_PICTURES) != 0)
        return 1;
    av_log_set_level(AV_LOG_QUIET);
    benchmark::Initialize(&argumentCount, arguments);
    benchmark::RunSpecifiedBenchmarks();
}
