// Reading what a file says of itself, by this library and by others: their processor time for the
// same files, in turns. The first argument is a folder with the files; the rest is the benchmark's.

#include "kxmd/core/KXMDFileMeta.h"

#include <benchmark/benchmark.h>
#include <fileref.h>
#include <tag.h>

extern "C" {
#include <id3tag.h>
#include <libavformat/avformat.h>
}

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t headLength = 4 * 1024, tailLength = 64 * 1024; // Bytes.

void readPart(int descriptor, off_t position, std::size_t length)
{
    static std::array<char, tailLength> bytes;
    benchmark::DoNotOptimize(::pread(descriptor, bytes.data(), length, position));
}

/// The least that any reader asks of the kernel: the file's size and head, and the tail as well
/// where its tables may lie there.
void floorOfTheKernel(std::string const& path)
{
    int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status { };
    benchmark::DoNotOptimize(::fstat(descriptor, &status));
    readPart(descriptor, 0, headLength);
    if (!path.ends_with(".mp3"))
        readPart(descriptor, status.st_size - static_cast<off_t>(tailLength), tailLength);
    ::close(descriptor);
}

void readWithKXMD(std::string const& path)
{
    auto const meta = KXMDFileMeta::fileMetaWithSourcePath(path);
    for (auto const key : { KXMDMetadataKeyName, KXMDMetadataKeyArtist, KXMDMetadataKeyAlbum })
        benchmark::DoNotOptimize(meta->metadataForKey(key));
    benchmark::DoNotOptimize(meta->audioCodecsInfo());
    benchmark::DoNotOptimize(meta->videoCodecsInfo());
}

void readWithTagLib(std::string const& path)
{
    constexpr bool readAudioProperties = false;
    TagLib::FileRef const file(path.c_str(), readAudioProperties);
    if (!file.tag())
        return;
    benchmark::DoNotOptimize(file.tag()->title());
    benchmark::DoNotOptimize(file.tag()->artist());
    benchmark::DoNotOptimize(file.tag()->album());
}

void readWithID3Tag(std::string const& path)
{
    id3_file* const file = id3_file_open(path.c_str(), ID3_FILE_MODE_READONLY);
    if (!file)
        return;
    for (char const* const frame : { ID3_FRAME_TITLE, ID3_FRAME_ARTIST, ID3_FRAME_ALBUM })
        benchmark::DoNotOptimize(id3_tag_findframe(id3_file_tag(file), frame, 0));
    id3_file_close(file);
}

void readWithAVFormat(std::string const& path)
{
    AVFormatContext* file = nullptr;
    if (avformat_open_input(&file, path.c_str(), nullptr, nullptr) < 0)
        return;
    if (path.ends_with(".mp4")) // It tells profiles only after a look at the media.
        benchmark::DoNotOptimize(avformat_find_stream_info(file, nullptr));
    benchmark::DoNotOptimize(av_dict_get(file->metadata, "title", nullptr, 0));
    avformat_close_input(&file);
}

void add(std::string const& name, void (*read)(std::string const&), std::string const& path)
{
    std::string const file = std::filesystem::path(path).filename().string();
    benchmark::RegisterBenchmark(
        (name + '/' + file).c_str(), [read, path](benchmark::State& state) {
            for ([[maybe_unused]] auto _ : state)
                read(path);
        });
}

void addAll(std::string const& path)
{
    bool const isMP3 = path.ends_with(".mp3");
    add("floor", floorOfTheKernel, path);
    add("kxmd", readWithKXMD, path);
    add("TagLib", readWithTagLib, path);
    if (isMP3)
        add("libid3tag", readWithID3Tag, path);
    add("libavformat", readWithAVFormat, path);
}

}

int main(int count, char** arguments)
{
    if (count < 2) {
        std::fprintf(stderr, "usage: %s FOLDER [BENCHMARK OPTION...]\n", arguments[0]);
        return 2;
    }
    av_log_set_level(AV_LOG_QUIET);
    for (auto const& entry : std::filesystem::directory_iterator(arguments[1]))
        addAll(entry.path().string());
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
}
