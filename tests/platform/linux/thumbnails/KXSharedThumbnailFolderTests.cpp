#include "kxmd/platform/linux/thumbnails/KXSharedThumbnailFolderPrivate.h"

#include "support/Files.h"
#include "support/SharedThumbnails.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace build;
using namespace shared_thumbnails;
namespace files = std::filesystem;

namespace {

class KXSharedThumbnailFolderTest : public testing::Test {
protected:
    std::string address() const { return addressOf(path); }

    std::string time() const
    {
        struct stat status { };
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return std::to_string(status.st_mtime);
    }

    /// Keeps a thumbnail with these texts in the folder for a size.
    void keep(std::string const& size, std::vector<Bytes> const& texts) const
    {
        files::create_directories(folder.path() / size);
        folder.write(size + "/" + nameFor(path), withChunks(png(1, 1), texts));
    }

    void keepValid(std::string const& size) const
    {
        keep(size, { textChunk("Thumb::URI", address()), textChunk("Thumb::MTime", time()) });
    }

    /// The side length of the thumbnail that is chosen; 0 for none.
    int chosen(int sideLength) const
    {
        auto const entry
            = KXSharedThumbnailFolder(folder.path().string()).entryForPath(path, sideLength);
        EXPECT_TRUE(!entry || files::is_regular_file(entry->path));
        return entry ? entry->sideLength : 0;
    }

    TemporaryFolder const folder;
    std::string const path = folder.write("a \xC3\xB6 #file%.odt", text("letter"));
};

}

TEST_F(KXSharedThumbnailFolderTest, WithoutThumbnailThereIsNone) { EXPECT_EQ(chosen(128), 0); }

TEST_F(KXSharedThumbnailFolderTest, ChoosesTheSmallestThatIsLargeEnough)
{
    keepValid("normal");
    keepValid("x-large");
    EXPECT_EQ(chosen(100), 128);
    EXPECT_EQ(chosen(128), 128);
    EXPECT_EQ(chosen(129), 512);
    EXPECT_EQ(chosen(2000), 512);
    keepValid("large");
    EXPECT_EQ(chosen(129), 256);
    keepValid("xx-large");
    EXPECT_EQ(chosen(513), 1024);
    for (int const sideLength : { 128, 256, 512, 1024 })
        EXPECT_EQ(chosen(sideLength), sideLength);
    EXPECT_EQ(chosen(257), 512);
}

TEST_F(KXSharedThumbnailFolderTest, ThumbnailOfAnEarlierStateIsNone)
{
    keepValid("normal");
    files::last_write_time(path, files::last_write_time(path) - std::chrono::hours(1));
    EXPECT_EQ(chosen(128), 0);
}

TEST_F(KXSharedThumbnailFolderTest, TextsMustBeThereAndMatch)
{
    Bytes const uri = textChunk("Thumb::URI", address());
    Bytes const mtime = textChunk("Thumb::MTime", time());
    for (auto const& texts : std::vector<std::vector<Bytes>> { {}, { uri }, { mtime },
             { uri, textChunk("Thumb::MTime", "") },
             { uri, textChunk("Thumb::MTime", time() + "1") },
             { uri, textChunk("Thumb::MTime", "x" + time()) },
             { textChunk("Thumb::URI", "file:///other"), mtime },
             { uri, mtime, textChunk("Thumb::Size", "7") },
             { uri, pngChunk("tEXt", text("Thumb::MTime" + time())) } }) {
        keep("normal", texts);
        EXPECT_EQ(chosen(128), 0);
    }
    for (auto const& texts :
        std::vector<std::vector<Bytes>> { { mtime, uri, textChunk("Thumb::Size", "6") },
            { textChunk("Software", "x"), uri, mtime },
            { uri, textChunk("Thumb::MTime", time() + ".25") } }) {
        keep("normal", texts);
        EXPECT_EQ(chosen(128), 128);
    }
}

TEST_F(KXSharedThumbnailFolderTest, TextsLieInTheFirst64Chunks)
{
    // The header is one of them.
    std::vector<Bytes> texts(61, textChunk("Software", "x"));
    texts.push_back(textChunk("Thumb::URI", address()));
    texts.push_back(textChunk("Thumb::MTime", time()));
    keep("normal", texts);
    EXPECT_EQ(chosen(128), 128);
    texts.insert(texts.begin(), textChunk("Software", "x"));
    keep("normal", texts);
    EXPECT_EQ(chosen(128), 0);
}

TEST_F(KXSharedThumbnailFolderTest, TextsLieBeforeThePixels)
{
    std::vector<Bytes> const texts { textChunk("Thumb::URI", address()),
        textChunk("Thumb::MTime", time()) };
    Bytes const pixels = pngChunk("IDAT", zeros(10));
    keep("normal", { texts[0], texts[1], pixels });
    EXPECT_EQ(chosen(128), 128);
    keep("normal", { pixels, texts[0], texts[1] });
    EXPECT_EQ(chosen(128), 0);
}

TEST_F(KXSharedThumbnailFolderTest, RelativePathHasNone)
{
    keepValid("normal");
    auto const before = files::current_path();
    files::current_path(folder.path());
    KXSharedThumbnailFolder const shared(folder.path().string());
    EXPECT_FALSE(shared.entryForPath(files::path(path).filename().string(), 128));
    files::current_path(before);
}

TEST_F(KXSharedThumbnailFolderTest, TextHasUpTo32Kibibytes)
{
    std::string fraction = time() + ".";
    fraction.resize(32 * 1024 - std::string("Thumb::MTime").size() - 1, '0');
    Bytes const uri = textChunk("Thumb::URI", address());
    keep("normal", { uri, textChunk("Thumb::MTime", fraction) });
    EXPECT_EQ(chosen(128), 128);
    keep("normal", { uri, textChunk("Thumb::MTime", fraction + "0") });
    EXPECT_EQ(chosen(128), 0);
}

TEST_F(KXSharedThumbnailFolderTest, DamagedThumbnailIsNone)
{
    std::string const name = "normal/" + nameFor(path);
    keepValid("normal");
    Bytes const whole = bytesOfFile(folder.path() / name);
    std::size_t const needed = whole.size() - 12; // All but IEND.
    for (std::size_t length = 0; length < needed; ++length) {
        folder.write(name, Bytes(whole.begin(), whole.begin() + static_cast<int>(length)));
        // The last checksum is not looked at.
        EXPECT_EQ(chosen(128), length < needed - 4 ? 0 : 128) << length;
    }
    Bytes other = whole;
    other[1] = 'Q';
    folder.write(name, other);
    EXPECT_EQ(chosen(128), 0);
    keep("normal", std::vector<Bytes>(1'000, textChunk("Software", "x")));
    EXPECT_EQ(chosen(128), 0);
    folder.write(
        name, join(Bytes(whole.begin(), whole.begin() + 33), u32(0xFFFFFFFF), text("tEXt")));
    EXPECT_EQ(chosen(128), 0);
}

TEST_F(KXSharedThumbnailFolderTest, FileThatIsGoneHasNone)
{
    keepValid("normal");
    files::remove(path);
    EXPECT_EQ(chosen(128), 0);
}
