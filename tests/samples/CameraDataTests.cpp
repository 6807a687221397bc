// What other programs still find of a camera in real recordings once they are cleaned.

#include "kxmd/mp4/KXMP4CameraData.h"
#include "kxmd/mp4/KXMP4MovieKind.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/Programs.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

using build::Bytes;

namespace {

/// Names of fields that tell who recorded a movie with what and where, as both programs have them.
bool isOfCamera(std::string name)
{
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    constexpr std::string_view names[] { "make", "model", "gpscoordinates", "gpsposition",
        "gpslatitude", "gpslongitude", "locationinformation", "com_apple_quicktime_make",
        "com_apple_quicktime_model", "com_apple_quicktime_location_iso6709", "xyz",
        "recorded_location", "serialnumber", "lensserialnumber", "serialnumberhash" };
    std::string_view rest = name;
    rest = rest.substr(0, rest.find('-')); // What follows is a language.
    return std::ranges::find(names, rest) != std::end(names);
}

/// The fields of a camera in a report, wherever they are nested.
void appendFieldsOfCamera(std::vector<std::string>& found, nlohmann::json const& report)
{
    auto const flat = report.flatten();
    for (auto const& [path, value] : flat.items()) {
        auto const name = path.substr(path.rfind('/') + 1);
        if (isOfCamera(name))
            found.push_back(path + "=" + value.dump());
    }
}

struct Recordings {
    TemporaryFolder before;
    TemporaryFolder after;
    std::size_t count { 0 };
    std::size_t countWithLargeMedia { 0 }; ///< Before the movie, which the tree does not find then.
};

bool hasLargeMediaBeforeMovie(Bytes const& file)
{
    return KXMP4Atom::atomWithAbstractData(*build::reader(file))->allAtomsWithPath("moov").empty();
}

/// Writes every recording that can be cleaned without harm into two folders: as it is, and cleaned.
void writeRecordings(Recordings& recordings)
{
    LogCapture const log;
    for (auto const& path : sampleFiles()) {
        Bytes const file = bytesOfFile(path);
        auto const kind = KXMP4MovieKind::kindOfData(*build::reader(file));
        using Processor = KXMDFileProcessorCleanIPhoneVideo;
        if (!kind || !kind->isRecording()
            || Processor::reasonAgainstCleaningData(*build::reader(file)))
            continue;
        auto const data = std::make_shared<KXMutableData>(file);
        EXPECT_TRUE(Processor::cleanData(data)) << path;
        Bytes const cleaned(data->bytes().begin(), data->bytes().end());
        if (KXMP4CameraData::reasonAgainstRemovingFromData(*build::reader(cleaned)))
            continue;
        EXPECT_TRUE(KXMP4CameraData::removeFromData(data)) << path;
        EXPECT_EQ(
            KXMP4CameraData::bytesInData(*build::reader(cleaned)), cleaned.size() - data->length());
        recordings.countWithLargeMedia += hasLargeMediaBeforeMovie(file);
        std::string const name = std::to_string(++recordings.count) + path.filename().string();
        recordings.before.write(name, file);
        recordings.after.write(name, { data->bytes().begin(), data->bytes().end() });
    }
}

std::vector<std::string> fieldsOfCamera(std::string const& command, TemporaryFolder const& folder)
{
    std::vector<std::string> found;
    auto const output = outputOf(command + " '" + folder.path().string() + "' 2>/dev/null");
    auto const report = nlohmann::json::parse(output, nullptr, false);
    EXPECT_FALSE(report.is_discarded()) << command;
    if (!report.is_discarded())
        appendFieldsOfCamera(found, report);
    return found;
}

}

TEST(CameraData, OtherProgramsFindNoneInCleanedRecordings)
{
    if (sampleFiles().empty())
        GTEST_SKIP() << "no samples";
    Recordings recordings;
    writeRecordings(recordings);
    EXPECT_GE(recordings.count, 20u);
    EXPECT_GE(recordings.countWithLargeMedia, 4u);
    std::size_t programs = 0;
    for (std::string const command : { "exiftool -r -j -g -u", "mediainfo --Output=JSON" }) {
        if (!isInstalled(command.substr(0, command.find(' '))))
            continue;
        ++programs;
        EXPECT_GE(fieldsOfCamera(command, recordings.before).size(), 5u) << command;
        for (auto const& field : fieldsOfCamera(command, recordings.after))
            ADD_FAILURE() << command << ": " << field;
    }
    if (!programs)
        GTEST_SKIP() << "no program to ask";
}

TEST(CameraData, NothingElseOfCleanedRecordingsChanges)
{
    if (sampleFiles().empty() || !isInstalled("ffmpeg"))
        GTEST_SKIP() << "no samples or no program to ask";
    constexpr std::uintmax_t largest = 600 << 10; // Larger ones say nothing new.
    Recordings recordings;
    writeRecordings(recordings);
    std::size_t count = 0;
    for (auto const& entry : std::filesystem::directory_iterator(recordings.before.path())) {
        if (entry.file_size() > largest)
            continue;
        auto const name = entry.path().filename();
        auto const packetsOf = [&name](TemporaryFolder const& folder) {
            return outputOf("ffmpeg -v quiet -i '" + (folder.path() / name).string()
                + "' -map 0:v? -map 0:a? -c copy -f streamhash - 2>/dev/null");
        };
        auto const packets = packetsOf(recordings.before);
        count += !packets.empty();
        EXPECT_EQ(packets, packetsOf(recordings.after)) << name;
    }
    EXPECT_GE(count, 20u);
}
