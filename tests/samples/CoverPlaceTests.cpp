// Music in which a place for a cover was made, as other programs play it.

#include "kxmd/core/KXMDCoverPlace.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/Programs.h"

#include <gtest/gtest.h>

#include <memory>

using build::Bytes;
namespace files = std::filesystem;

namespace {

/// The file with a place for a cover, and a cover in it; empty where that is refused.
Bytes withCover(Bytes const& file, KXData const& picture)
{
    if (!KXMDCoverPlace::canMakeInData(*build::reader(file))
        || KXMDCoverPlace::reasonAgainstMakingInData(*build::reader(file)))
        return {};
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_TRUE(KXMDCoverPlace::makeInData(data));
    Bytes const place(data->bytes().begin(), data->bytes().end());
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*build::reader(place));
    EXPECT_TRUE(meta && meta->canInsertAlbumCover());
    EXPECT_TRUE(meta && meta->addEncodedAlbumCoverToData(picture, data));
    return { data->bytes().begin(), data->bytes().end() };
}

class CoverPlaceOfMusic : public testing::Test {
protected:
    void SetUp() override
    {
        if (!isInstalled("ffmpeg") || !isInstalled("ffprobe"))
            GTEST_SKIP() << "no program to ask";
        auto const path = (folder.path() / "cover.jpg").string();
        outputOf("ffmpeg -v quiet -f lavfi -i testsrc=size=256x256 -frames:v 1 '" + path + "'");
        picture = KXData(bytesOfFile(path));
        ASSERT_GT(picture.length(), 0u);
    }

    /// Digests of the samples of sound that a file decodes to.
    static std::string sound(std::string const& path)
    {
        return outputOf("ffmpeg -v quiet -i '" + path + "' -map 0:a -f streamhash - 2>/dev/null");
    }

    /// Whether a file was edited; then it must sound as before, with a cover.
    bool checkFile(files::path const& path)
    {
        SCOPED_TRACE(path);
        Bytes const edited = withCover(bytesOfFile(path), picture);
        if (edited.empty())
            return false;
        auto const after = folder.write("after" + path.extension().string(), edited);
        auto const before = sound(path.string());
        EXPECT_EQ(before, sound(after));
        auto const pictures = outputOf(
            "ffprobe -v quiet -show_entries stream_disposition=attached_pic -of csv=p=0 '" + after
            + "'");
        EXPECT_TRUE(before.empty() || pictures.find('1') != std::string::npos) << "no cover";
        return !before.empty();
    }

    TemporaryFolder const folder;
    LogCapture const log;
    KXData picture;
};

}

TEST_F(CoverPlaceOfMusic, MadeMusicSoundsAsBefore)
{
    std::string const source = "ffmpeg -v quiet -f lavfi -i sine=duration=1 -map_metadata -1 ";
    for (std::string const options : { "-c:a libmp3lame -id3v2_version 0 '%.mp3'",
             "-c:a libmp3lame -id3v2_version 0 -write_id3v1 1 -metadata title=T '%1.mp3'",
             "-c:a libmp3lame -b:a 64k -ar 16000 -write_xing 0 -id3v2_version 0 '%2.mp3'",
             "-c:a aac -fflags +bitexact -flags:a +bitexact -empty_hdlr_name 1 '%.m4a'",
             "-c:a aac -fflags +bitexact -movflags +faststart '%1.m4a'",
             "-c:a alac -fflags +bitexact -movflags +faststart -f mp4 '%2.m4a'" }) {
        std::string command = source + options;
        command.replace(command.find('%'), 1, (folder.path() / "music").string());
        outputOf(command);
    }
    std::size_t count = 0;
    for (auto const* const name :
        { "music.mp3", "music1.mp3", "music2.mp3", "music.m4a", "music1.m4a", "music2.m4a" }) {
        auto const path = folder.path() / name;
        ASSERT_TRUE(files::exists(path)) << path;
        bool const isEdited = checkFile(path);
        EXPECT_TRUE(isEdited || path.extension() == ".m4a") << path; // Which may have tags.
        count += isEdited;
    }
    EXPECT_GE(count, 4u);
}

TEST_F(CoverPlaceOfMusic, SamplesSoundAsBefore)
{
    if (sampleFiles().empty())
        GTEST_SKIP() << "no samples";
    constexpr std::uintmax_t largest = 600 << 10; // Larger ones say nothing new.
    std::size_t count = 0;
    for (auto const& path : sampleFiles()) {
        if (files::file_size(path) <= largest)
            count += checkFile(path);
    }
    EXPECT_GE(count, 20u);
}
