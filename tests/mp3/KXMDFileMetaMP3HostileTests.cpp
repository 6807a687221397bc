// Tags that claim more than they hold, or hold more than anybody needs.

#include "kxmd/mp3/KXMDFileMetaMP3.h"

#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/PictureHeaders.h"

#include <gmock/gmock.h>

#include <algorithm>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::string_view keys[] { KXMDMetadataKeyName, KXMDMetadataKeyArtist,
    KXMDMetadataKeyAlbum, KXMDMetadataKeyAlbumArtist };

Bytes repeated(Bytes const& piece, std::size_t count)
{
    Bytes result;
    result.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        result.insert(result.end(), piece.begin(), piece.end());
    return result;
}

/// Parses the first `length` bytes and checks what must hold of any file.
void parseFirstBytes(Bytes const& bytes, std::size_t length)
{
    auto const data
        = reader(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)));
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*data);
    if (!meta)
        return;
    ASSERT_EQ(meta->filesize(), length);
    for (std::string_view const key : keys) {
        auto const value = meta->metadataForKey(key);
        ASSERT_LE(value ? value->size() : 0, length * 2); // Latin-1 takes up to two bytes in UTF-8.
    }
    auto const mp3 = std::dynamic_pointer_cast<KXMDFileMetaMP3>(meta);
    if (!mp3)
        return;
    for (auto const& frame : *mp3->frames())
        ASSERT_LT(frame->offset(), length);
}

}

TEST(KXMDFileMetaMP3, FrameThatDoesNotAdvanceIsTheLast)
{
    KXMDFileMetaMP3 meta;
    Bytes const endless = frameClaiming(ID3::v23, 0xFFFFFFF6, "TCON", {}); // 0 in 32 bits.
    Bytes const frames
        = join(textFrame(ID3::v23, "TIT2", "Blue"), endless, textFrame(ID3::v23, "TIT2", "Red"));
    ASSERT_TRUE(meta.parseAbstractData(*reader(tag(ID3::v23, frames))));
    EXPECT_EQ(meta.frames()->size(), 2u);
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
}

TEST(KXMDFileMetaMP3, FramesThatAdvanceByOneByteEndWithTheTag)
{
    LogCapture const log;
    KXMDFileMetaMP3 meta;
    Bytes const slow = frameClaiming(ID3::v23, 0xFFFFFFF7, "\xFF\xFF\xFF\xFF", {}); // 1 in 32 bits.
    ASSERT_TRUE(meta.parseAbstractData(*reader(tag(ID3::v23, join(slow, filled(2000, 0xFF))))));
    EXPECT_GE(meta.frames()->size(), 2u);
    EXPECT_EQ((*meta.frames())[1]->offset(), 11u);
    EXPECT_LE(meta.frames()->size(), 2010u);
}

TEST(KXMDFileMetaMP3, AMillionFramesAreEnough)
{
    constexpr std::size_t most = 1048576;
    Bytes const empty = frame(ID3::v22, "TCO", {}); // Six bytes.
    {
        LogCapture const log;
        KXMDFileMetaMP3 meta;
        ASSERT_TRUE(meta.parseAbstractData(*reader(tag(ID3::v22, repeated(empty, most)))));
        EXPECT_EQ(meta.frames()->size(), most);
        EXPECT_THAT(log.lines(), IsEmpty());
    }
    LogCapture const log;
    KXMDFileMetaMP3 meta;
    Bytes const frames = join(textFrame(ID3::v22, "TT2", "Blue"), repeated(empty, most + 1000));
    auto const data = reader(tag(ID3::v22, frames));
    for (int parses = 1; parses <= 2; ++parses) { // Each parse has a budget of its own.
        ASSERT_TRUE(meta.parseAbstractData(*data));
        EXPECT_EQ(meta.frames()->size(), most);
        EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
        EXPECT_THAT(log.lines(), testing::SizeIs(parses));
    }
    EXPECT_THAT(log.lines(),
        testing::Each("Metadata: KXMDFileMetaMP3->too many frames, the rest is left out"));
}

TEST(KXMDFileMetaMP3, CoversShareTheStepsOfAParse)
{
    // Of a million steps three take 900,000.
    std::vector<Bytes> boxes(300'000, atom("free"));
    boxes.front() = heicType();
    boxes.back() = heifMetadata(8, 8);
    Bytes const costly = pictureFrame(ID3::v23, concatenated(boxes));
    auto const data = reader(tag(ID3::v23,
        join(repeated(costly, 4), pictureFrame(ID3::v23, jpeg(9, 9)),
            pictureFrame(ID3::v23, gif(9, 9)))));
    KXMDFileMetaMP3 meta;
    for (int parses = 1; parses <= 2; ++parses) { // Each parse has a budget of its own.
        ASSERT_TRUE(meta.parseAbstractData(*data));
        auto const& frames = *meta.frames();
        ASSERT_EQ(frames.size(), 6u);
        for (std::size_t i = 0; i < 4; ++i)
            EXPECT_EQ(frames[i]->albumCoverSize(), (i < 3 ? KXSize { 8, 8 } : KXSize())) << i;
        EXPECT_EQ(frames[4]->albumCoverSize(), KXSize());
        EXPECT_EQ(frames[5]->albumCoverSize(), (KXSize { 9, 9 })); // Takes none.
    }
}

TEST(KXMDFileMetaMP3, EveryTruncationIsParsed)
{
    LogCapture const log;
    for (ID3 const version : { ID3::v22, ID3::v23, ID3::v24 }) {
        bool const old = version == ID3::v22;
        Bytes const frames = join(textFrame(version, old ? "TT2" : "TIT2", "Blue and green"),
            frame(version, old ? "TP1" : "TPE1", join(u8(1), utf16(u"\u00C4nn\u20AC"))),
            pictureFrame(version, jpeg(32, 24, 300)), pictureFrame(version, png(32, 24)),
            pictureFrame(version, gif(32, 24)), pictureFrame(version, bmp(32, 24)),
            pictureFrame(version, tiff(32, 24)), pictureFrame(version, webp(32, 24)),
            pictureFrame(version, heif(32, 24)), textFrame(version, old ? "TAL" : "TALB", "Sea"));
        Bytes const whole = tag(version, frames);
        for (std::size_t length = 0; length < whole.size(); ++length)
            ASSERT_NO_FATAL_FAILURE(parseFirstBytes(whole, length)) << length;

        KXMDFileMetaMP3 meta;
        ASSERT_TRUE(meta.parseAbstractData(*reader(whole)));
        EXPECT_EQ(meta.metadataForKey("Album"), "Sea");
    }
}

TEST(KXMDFileMetaMP3, TruncatedTextIsAbsentNotShort)
{
    LogCapture const log;
    Bytes const whole = tag(ID3::v23, textFrame(ID3::v23, "TIT2", "Blue and green"));
    std::size_t const end = whole.size() - 10;
    for (std::size_t length = 10; length <= whole.size(); ++length) {
        KXMDFileMetaMP3 meta;
        Bytes const cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        ASSERT_TRUE(meta.parseAbstractData(*reader(cut)));
        EXPECT_EQ(meta.metadataForKey("Name").has_value(), length >= end) << length;
    }
}

TEST(KXMDFileMetaMP3, RealFilesAreParsedWhereverTheyAreCutOff)
{
    constexpr std::size_t mostFiles = 12, longestFile = 40'000, everyByteUpTo = 600, step = 97;
    LogCapture const log;
    std::size_t count = 0;
    for (auto const& path : sampleFiles()) {
        if (count == mostFiles)
            break;
        Bytes const bytes = bytesOfFile(path);
        if (bytes.size() > longestFile
            || KXMDFileMeta::metaTypeForData(*reader(bytes)) != KXMDMetaTypeMP3)
            continue;
        ++count;
        SCOPED_TRACE(path.filename().string());
        for (std::size_t length = 0; length < bytes.size();
             length += length < everyByteUpTo ? 1 : step)
            ASSERT_NO_FATAL_FAILURE(parseFirstBytes(bytes, length)) << length;
        ASSERT_NO_FATAL_FAILURE(parseFirstBytes(bytes, bytes.size()));
    }
    if (!count)
        GTEST_SKIP() << "no real files with an ID3v2 tag here";
}
