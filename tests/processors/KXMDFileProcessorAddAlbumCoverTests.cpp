#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/processors/KXMDFileProcessorAddAlbumCover.h"

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp4/atoms/KXMP4AtomCovr.h"
#include "support/AtomTrees.h"
#include "support/ThumbnailTest.h"

#include <algorithm>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::string_view path = "/Music/Song";
Bytes const title = tagAtom("\xA9nam", "Title");
Bytes const media = atom("mdat", filled(64, 'm'));

/// A file with these atoms around a track whose only chunk is `media`.
Bytes mp4(Bytes const& movieChildren)
{
    auto const withChunkAt = [&](std::uint32_t chunk) {
        auto const sound = track("soun", stsd(soundEntry("mp4a")), { chunk });
        return join(ftyp(), atom("moov", sound, movieChildren));
    };
    auto const start = static_cast<std::uint32_t>(withChunkAt(0).size() + 8);
    return join(withChunkAt(start), media);
}

Bytes mp4WithTags(Bytes const& tags) { return mp4(userDataWithTags(tags)); }

Bytes mp3(Bytes const& frames)
{
    return join(tag(ID3::v23, join(textFrame(ID3::v23, "TIT2", "Title"), frames)), text("audio"));
}

KXMutableAbstractData::Ref mutableReader(Bytes bytes)
{
    return KXMutableAbstractData::abstractDataWithData(
        std::make_shared<KXMutableData>(std::move(bytes)));
}

Bytes bytesOf(KXAbstractData& data)
{
    Bytes bytes(data.length());
    data.setOffset(0);
    EXPECT_TRUE(data.readBytesTo(bytes.data(), bytes.size()));
    return bytes;
}

/// Width and height of each cover of an MP4 file.
std::vector<KXSize> coverSizes(Bytes const& file)
{
    std::vector<KXSize> sizes;
    auto const root = treeOf(file);
    for (auto const& atom : root->allAtomsWithPath("moov/udta/meta/ilst/covr"))
        sizes.push_back(std::dynamic_pointer_cast<KXMP4AtomCovr>(atom)->albumCoverSize());
    return sizes;
}

}

class KXMDFileProcessorAddAlbumCoverTest : public ThumbnailTest {
protected:
    KXMDFileProcessorAddAlbumCoverTest()
    {
        setThumbnail(pictures::red);
        machine.pictureLoader->encodeForReal();
    }

    void setThumbnail(pictures::Colour colour)
    {
        machine.thumbnailService->setImageForPath(
            pictures::solid(300, 300, colour), std::string(path));
    }

    /// A proxy whose file has the metadata of these bytes, as a host stores it.
    static KXDCSimpleFileProxy proxyOf(Bytes const& bytes)
    {
        auto const file = fileAt(std::string(path));
        std::shared_ptr<KXObject> const meta
            = KXMDFileMeta::fileMetaWithAbstractData(*reader(bytes));
        file->setMetadataForKey(meta, "FileMetaObject");
        return { file, "/Phone/Song" };
    }

    Bytes processed(Bytes const& bytes)
    {
        auto const input = mutableReader(bytes);
        auto const output = processor().processedFileDataForFileProxy(proxyOf(bytes), input);
        return bytesOf(*output);
    }

    std::uint64_t predicted(Bytes const& bytes, std::uint64_t filesize)
    {
        return processor().processedFilesizeForFileProxy(proxyOf(bytes), filesize);
    }

    KXMDFileProcessorAddAlbumCover processor() const
    {
        return KXMDFileProcessorAddAlbumCover(controller);
    }
};

TEST_F(KXMDFileProcessorAddAlbumCoverTest, PlainTextComesBackWithAMessage)
{
    LogCapture const log;
    auto const input = mutableReader(text("Dear diary"));
    auto const proxy = proxyOf(text("Dear diary"));
    EXPECT_EQ(processor().processedFileDataForFileProxy(proxy, input), input);
    EXPECT_THAT(log.lines(),
        ElementsAre("Metadata: KXMDFileProcessorAddAlbumCover->processedFileDataForFile: Not "
                    "possible to insert album cover"));
    EXPECT_EQ(processor().processedFilesizeForFileProxy(proxy, 10), 10u);
    EXPECT_THAT(rendered(), IsEmpty());
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, FileThatClaimsToBeMusicComesBackWithAMessage)
{
    LogCapture const log;
    auto const input = mutableReader(text("ID3 is not all that a tag begins with"));
    auto const proxy = proxyOf(text(""));
    EXPECT_EQ(processor().processedFileDataForFileProxy(proxy, input), input);
    EXPECT_THAT(log.lines(), testing::Contains(testing::HasSubstr("Not possible to insert")));
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, NoReaderGivesNone)
{
    LogCapture const log;
    EXPECT_EQ(processor().processedFileDataForFileProxy(proxyOf(text("")), nullptr), nullptr);
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, MP4WithoutTagListComesBack)
{
    LogCapture const log;
    for (Bytes const& children : { Bytes(), atom("udta"), atom("udta", atom("meta", u32(0))) }) {
        auto const file = mp4(children);
        auto const input = mutableReader(file);
        EXPECT_EQ(processor().processedFileDataForFileProxy(proxyOf(file), input), input);
        EXPECT_EQ(bytesOf(*input), file);
        EXPECT_EQ(predicted(file, 4711), 4711u);
    }
    EXPECT_EQ(log.lines().size(), 3u);
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, InsertsTheThumbnailIntoTheBufferOfTheReader)
{
    LogCapture const log;
    auto const file = mp4WithTags(title);
    auto const input = mutableReader(file);
    auto const output = processor().processedFileDataForFileProxy(proxyOf(file), input);
    ASSERT_NE(output, input);
    auto const mutableOutput = std::dynamic_pointer_cast<KXMutableAbstractData>(output);
    ASSERT_TRUE(mutableOutput);
    EXPECT_EQ(mutableOutput->mutableData(), input->mutableData());
    EXPECT_EQ(output->offset(), 0u);
    EXPECT_THAT(coverSizes(bytesOf(*output)), ElementsAre(KXSize { 256, 256 }));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, TagsAndMediaStayRight)
{
    auto const before = mp4WithTags(title);
    auto const after = processed(before);
    auto const grown = static_cast<std::uint32_t>(after.size() - before.size());
    EXPECT_EQ(Bytes(after.end() - 72, after.end()), media);
    auto const tables = treeOf(after)->allAtomsWithPath("moov/trak/mdia/minf/stbl/stco");
    ASSERT_EQ(tables.size(), 1u);
    Bytes const table(after.begin() + static_cast<std::ptrdiff_t>(tables[0]->offset()),
        after.begin() + static_cast<std::ptrdiff_t>(tables[0]->offset() + tables[0]->size()));
    EXPECT_EQ(table, stco({ static_cast<std::uint32_t>(before.size() - 64) + grown }));
    EXPECT_EQ(
        KXMDFileMeta::fileMetaWithAbstractData(*reader(after))->metadataForKey("Name"), "Title");
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, InsertsIntoMP3)
{
    auto const before = mp3({});
    auto const after = processed(before);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader(after));
    auto const cover = meta->albumCoverFromData(*reader(after));
    ASSERT_TRUE(cover);
    EXPECT_EQ(cover->size(), (KXSize { 256, 256 }));
    EXPECT_EQ(meta->metadataForKey("Name"), "Title");
    EXPECT_EQ(Bytes(after.end() - 5, after.end()), text("audio"));
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, ValidCoverIsReplacedAllTheSame)
{
    auto const file = mp4WithTags(join(covr(13, jpeg(600, 600)), title));
    EXPECT_THAT(coverSizes(processed(file)), ElementsAre(KXSize { 256, 256 }));
    auto const music = mp3(pictureFrame(ID3::v23, jpeg(600, 600)));
    EXPECT_NE(processed(music), music);
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, ValidCoverIsPredictedToKeepTheSize)
{
    auto const file = mp4WithTags(join(covr(13, jpeg(600, 600)), title));
    EXPECT_EQ(predicted(file, file.size()), file.size());
    EXPECT_NE(processed(file).size(), file.size());
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, WithoutThumbnailBothLeaveTheFileAsItIs)
{
    machine.thumbnailService->setImageForPath(nullptr, std::string(path));
    LogCapture const log;
    for (Bytes const& file : { mp4WithTags(join(covr(13, jpeg(600, 600)), title)), mp3({}) }) {
        auto const input = mutableReader(file);
        EXPECT_EQ(processor().processedFileDataForFileProxy(proxyOf(file), input), input);
        EXPECT_EQ(bytesOf(*input), file);
        EXPECT_EQ(predicted(file, 4711), 4711u);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, SizeIsThatOfTheParsedFileNotTheOneHandedIn)
{
    auto const file = mp4WithTags(title);
    EXPECT_EQ(predicted(file, 1), processed(file).size());
    auto const valid = mp4WithTags(join(covr(13, jpeg(600, 600)), title));
    EXPECT_EQ(predicted(valid, 1), valid.size());
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, SizeWithoutTheHostsMetadataIsTheOneHandedIn)
{
    class OtherObject final : public KXObject { };
    for (KXDCValue const& value : { KXDCValue(), KXDCValue("a text"),
             KXDCValue(std::shared_ptr<KXObject>()), KXDCValue(std::make_shared<OtherObject>()) }) {
        auto const file = fileAt(std::string(path));
        file->setMetadataForKey(value, "FileMetaObject");
        EXPECT_EQ(processor().processedFilesizeForFileProxy(
                      KXDCSimpleFileProxy(file, "/Phone/Song"), 4711),
            4711u);
    }
    EXPECT_THAT(rendered(), IsEmpty());
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, DataDoesNotNeedTheHostsMetadata)
{
    KXDCSimpleFileProxy const proxy(fileAt(std::string(path)), "/Phone/Song");
    auto const input = mutableReader(mp4WithTags(title));
    EXPECT_NE(processor().processedFileDataForFileProxy(proxy, input), input);
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, PredictedSizeIsTheProducedOne)
{
    auto const small = jpeg(100, 100, 500);
    for (Bytes const& file : {
             mp4WithTags(title),
             mp4WithTags(join(covr(13, small), title)),
             mp4WithTags(join(title, covr(13, small), covr(14, png(199, 800)), title)),
             mp3({}),
             mp3(pictureFrame(ID3::v23, small)),
             mp3(join(pictureFrame(ID3::v23, small), pictureFrame(ID3::v23, png(1, 1)))),
         }) {
        for (auto const colour : { pictures::red, pictures::white }) {
            controller = KXMDThumbnailController::createWithPlatform(machine.platform());
            setThumbnail(colour);
            EXPECT_EQ(predicted(file, file.size()), processed(file).size());
        }
    }
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, ReaderThatCannotBeEditedComesBack)
{
    auto const file = mp4WithTags(title);
    auto const input = reader(file);
    EXPECT_EQ(processor().processedFileDataForFileProxy(proxyOf(file), input), input);
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, FailedEditGivesTheInputWithItsCoversGone)
{
    // Without its covers the list of tags is empty, and an empty one takes none.
    auto const file = mp4WithTags(covr(13, jpeg(100, 100)));
    auto const input = mutableReader(file);
    EXPECT_EQ(processor().processedFileDataForFileProxy(proxyOf(file), input), input);
    EXPECT_THAT(coverSizes(bytesOf(*input)), IsEmpty());
    EXPECT_EQ(treeOf(bytesOf(*input))->allAtomsWithPath("moov/udta/meta/ilst").size(), 1u);
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, EveryTruncationIsSurvived)
{
    LogCapture const log;
    auto const small = jpeg(100, 100, 60);
    for (Bytes const& file : { mp4WithTags(join(covr(13, small), title)),
             mp3(join(pictureFrame(ID3::v23, small), textFrame(ID3::v23, "TALB", "Album"))) }) {
        for (std::size_t length = 0; length < file.size(); ++length) {
            Bytes const cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
            EXPECT_FALSE(processed(cut).empty() && length > 0);
            static_cast<void>(predicted(cut, length)); // Whatever it is, it comes back.
        }
    }
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, ThumbnailIsEncodedOnceForSizeAndDataOfAllItsFiles)
{
    auto const file = mp4WithTags(title), other = mp3({});
    static_cast<void>(predicted(file, file.size()));
    static_cast<void>(processed(file));
    static_cast<void>(processed(other));
    static_cast<void>(predicted(other, other.size()));
    EXPECT_EQ(machine.pictureLoader->encodings(), 1u);
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, ValidCoverNeedsNoEncodingToPredictTheSize)
{
    auto const file = mp4WithTags(join(covr(13, jpeg(600, 600)), title));
    EXPECT_EQ(predicted(file, 4711), file.size());
}

TEST_F(KXMDFileProcessorAddAlbumCoverTest, ProxyWithoutAFileLeavesTheFileAsItIs)
{
    LogCapture const log;
    auto const file = mp4WithTags(title);
    auto const input = mutableReader(file);
    KXDCSimpleFileProxy const proxy(nullptr, "/Phone/Song");
    EXPECT_EQ(processor().processedFileDataForFileProxy(proxy, input), input);
    EXPECT_EQ(bytesOf(*input), file);
    EXPECT_EQ(processor().processedFilesizeForFileProxy(proxy, 4711), 4711u);
}
