#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"

#include "support/CoverTest.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <random>

using namespace build;
using testing::ElementsAreArray;

namespace {

constexpr ID3 versions[] { ID3::v22, ID3::v23, ID3::v24 };

Bytes const sound = join(bytes({ 0xFF, 0xFB }), filled(200, 0x55));

Bytes title(ID3 version) { return textFrame(version, version == ID3::v22 ? "TT2" : "TIT2", "T"); }

KXMutableData::Ref editable(Bytes bytes)
{
    return std::make_shared<KXMutableData>(std::move(bytes));
}

KXAbstractData::Ref readerOf(KXMutableData::Ref const& data)
{
    return KXMutableAbstractData::abstractDataWithData(data);
}

/// Removes the last cover and parses the file anew until there is none: what removal has to equal.
bool removeOneByOne(KXMutableData::Ref const& data)
{
    KXMDFileMetaMP3 meta;
    if (!meta.parseAbstractData(*readerOf(data)))
        return false;
    for (;;) {
        auto const covers = meta.allFramesWithTag(meta.albumCoverTag());
        if (!covers || covers->empty())
            return true;
        if (!covers->back()->size() || !covers->back()->removeSelfFromMutableData(*data)
            || !meta.parseAbstractData(*readerOf(data)))
            return false;
    }
}

std::uint32_t tagSizeOf(KXMutableData::Ref const& data)
{
    KXMDFileMetaMP3 meta;
    EXPECT_TRUE(meta.parseAbstractData(*readerOf(data)));
    return meta.headerSize();
}

Bytes repeated(Bytes const& piece, std::size_t count)
{
    return concatenated(std::vector<Bytes>(count, piece));
}

}

class KXMDFileMetaMP3Editing : public CoverTest { };

TEST_F(KXMDFileMetaMP3Editing, WritesTheFrameOfEachVersion)
{
    Bytes const picture = jpeg(300, 300, 200);
    auto const image = imageEncodedAs(picture);
    Bytes const frames[] {
        join(
            text("PIC"), bytes({ 0, 0, 206 }), bytes({ 0 }), text("JPG"), bytes({ 0, 0 }), picture),
        join(text("APIC"), bytes({ 0, 0, 0, 0xD6 }), bytes({ 0, 0, 0 }), text("image/jpeg"),
            bytes({ 0, 0, 0 }), picture),
        join(text("APIC"), bytes({ 0, 0, 1, 0x56 }), bytes({ 0, 0, 0 }), text("image/jpeg"),
            bytes({ 0, 0, 0 }), picture),
    };
    for (std::size_t i = 0; i < std::size(versions); ++i) {
        KXMDFileMetaMP3 meta;
        ASSERT_TRUE(meta.parseAbstractData(*reader(tag(versions[i], title(versions[i])))));
        EXPECT_THAT(meta.albumCoverFrameDataForImage(image).bytes(), ElementsAreArray(frames[i]));
        EXPECT_EQ(meta.albumCoverSizeForImage(image), frames[i].size());
    }
}

TEST_F(KXMDFileMetaMP3Editing, SizesOfVersion2WrapIn24Bits)
{
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(meta.parseAbstractData(*reader(tag(ID3::v22, title(ID3::v22)))));
    auto const image = imageEncodedAs(zeros(0x1000000));
    auto const frame = meta.albumCoverFrameDataForImage(image);
    ASSERT_EQ(frame.length(), 0x1000000u + 12);
    EXPECT_THAT(frame.bytes().first(6), ElementsAreArray(join(text("PIC"), bytes({ 0, 0, 6 }))));
}

TEST_F(KXMDFileMetaMP3Editing, WithoutAPictureThereIsNoFrame)
{
    KXMDFileMetaMP3 meta;
    EXPECT_EQ(meta.albumCoverSizeForImage(imageEncodedAs(jpeg(1, 1))), 0u) << "No version yet.";
    EXPECT_EQ(meta.albumCoverFrameDataForImage(imageEncodedAs(jpeg(1, 1))).length(), 0u);
    ASSERT_TRUE(meta.parseAbstractData(*reader(tag(ID3::v23, title(ID3::v23)))));
    EXPECT_EQ(meta.albumCoverSizeForImage(nullptr), 0u);
    EXPECT_EQ(meta.albumCoverSizeForImage(imageEncodedAs({})), 0u);
}

TEST_F(KXMDFileMetaMP3Editing, ALargerCoverReplacesTheSmallOne)
{
    Bytes const frames = join(title(ID3::v23), pictureFrame(ID3::v23, jpeg(150, 150, 400)));
    auto const data = editable(join(tag(ID3::v23, frames), sound));
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(meta.parseAbstractData(*readerOf(data)));
    EXPECT_FALSE(meta.hasValidAlbumCover());
    EXPECT_TRUE(meta.addAlbumCoverToData(imageEncodedAs(jpeg(300, 300, 500)), data));
    EXPECT_TRUE(meta.hasValidAlbumCover());
    EXPECT_EQ(meta.allFramesWithTag("APIC")->size(), 1u);
    EXPECT_EQ(meta.metadataForKey("Name"), "T");
}

TEST_F(KXMDFileMetaMP3Editing, TheCoverBecomesTheLastFrameButOne)
{
    for (ID3 const version : versions) {
        Bytes const picture = jpeg(10, 10, 90);
        Bytes const last = textFrame(version, version == ID3::v22 ? "TAL" : "TALB", "Album");
        auto const data = editable(join(tag(version, join(title(version), last)), sound));
        KXMDFileMetaMP3 meta;
        EXPECT_TRUE(meta.addAlbumCoverToData(imageEncodedAs(picture), data));
        Bytes const expected
            = join(tag(version, join(title(version), pictureFrame(version, picture), last)), sound);
        EXPECT_THAT(data->bytes(), ElementsAreArray(expected));
    }
}

TEST_F(KXMDFileMetaMP3Editing, ThreeCoversGoAndTheTagShrinksByTheirSizes)
{
    for (ID3 const version : versions) {
        Bytes const cover = pictureFrame(version, jpeg(10, 10, 100));
        Bytes const larger = pictureFrame(version, jpeg(10, 10, 300));
        auto const data
            = editable(join(tag(version, join(cover, title(version), larger, cover)), sound));
        auto const before = tagSizeOf(data);
        KXMDFileMetaMP3 meta;
        EXPECT_TRUE(meta.removeAlbumCoverFromData(data));
        EXPECT_EQ(meta.albumCoverSizeForEmbeddedTags(), 0u);
        EXPECT_EQ(before - tagSizeOf(data), 2 * cover.size() + larger.size());
        EXPECT_THAT(data->bytes(), ElementsAreArray(join(tag(version, title(version)), sound)));
    }
}

TEST_F(KXMDFileMetaMP3Editing, ATagOfPaddingCannotTakeACoverAndStaysAsItIs)
{
    Bytes const file = join(tag(ID3::v23, zeros(200)), sound);
    auto const data = editable(file);
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(meta.parseAbstractData(*readerOf(data)));
    EXPECT_FALSE(meta.canInsertAlbumCover());
    EXPECT_FALSE(meta.addAlbumCoverToData(imageEncodedAs(jpeg(300, 300)), data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(file));
}

TEST_F(KXMDFileMetaMP3Editing, FilesWithoutATagAreRefusedUnchanged)
{
    for (auto const& file : { Bytes(), sound, text("ID3"), tagClaiming(0x0500, 0, 100, sound),
             tagClaiming(0x0300, 0x80, 100, sound) }) {
        auto const data = editable(file);
        KXMDFileMetaMP3 meta;
        EXPECT_FALSE(meta.removeAlbumCoverFromData(data));
        EXPECT_FALSE(meta.addAlbumCoverToData(imageEncodedAs(jpeg(300, 300)), data));
        EXPECT_THAT(data->bytes(), ElementsAreArray(file));
    }
}

TEST_F(KXMDFileMetaMP3Editing, RemovedCoversStayRemovedWhenThereIsNoPicture)
{
    Bytes const frames = join(title(ID3::v23), pictureFrame(ID3::v23, jpeg(10, 10, 100)));
    auto const data = editable(join(tag(ID3::v23, frames), sound));
    KXMDFileMetaMP3 meta;
    EXPECT_FALSE(meta.addAlbumCoverToData(nullptr, data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(join(tag(ID3::v23, title(ID3::v23)), sound)));
}

TEST_F(KXMDFileMetaMP3Editing, TheSizeIsPredicted)
{
    auto const image = imageEncodedAs(jpeg(300, 300, 700));
    for (ID3 const version : versions) {
        for (std::size_t covers = 0; covers < 4; ++covers) {
            Bytes const cover = pictureFrame(version, jpeg(10, 10, 100 + covers));
            auto const data = editable(
                join(tag(version, join(repeated(cover, covers), title(version))), sound));
            KXMDFileMetaMP3 meta;
            ASSERT_TRUE(meta.parseAbstractData(*readerOf(data)));
            auto const predicted = meta.filesizeWithValidAlbumCover(image);
            auto const growth = meta.albumCoverSizeForImage(image);
            if (covers == 0) {
                EXPECT_EQ(predicted, data->length() + growth);
            }
            EXPECT_TRUE(meta.addAlbumCoverToData(image, data));
            EXPECT_EQ(data->length(), predicted);
        }
    }
}

TEST_F(KXMDFileMetaMP3Editing, AddingAndRemovingGivesTheOldBytes)
{
    for (ID3 const version : versions) {
        Bytes const file = join(tag(version, join(title(version), title(version))), sound);
        auto const data = editable(file);
        KXMDFileMetaMP3 meta;
        EXPECT_TRUE(meta.addAlbumCoverToData(imageEncodedAs(jpeg(300, 300, 700)), data));
        EXPECT_TRUE(meta.removeAlbumCoverFromData(data));
        EXPECT_THAT(data->bytes(), ElementsAreArray(file));
    }
}

TEST_F(KXMDFileMetaMP3Editing, TheFirstCoverThatDecodesIsRead)
{
    auto const image = pictures::solid(3, 3, pictures::green);
    machine.pictureLoader->setImageForWord(image, "readable");
    auto const file = tag(ID3::v23,
        join(pictureFrame(ID3::v23, text("broken")), pictureFrame(ID3::v23, text("readable"))));
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(meta.parseAbstractData(*reader(file)));
    EXPECT_EQ(meta.albumCoverFromData(*reader(file)), image);
    EXPECT_EQ(machine.pictureLoader->calls().size(), 2u);
    EXPECT_EQ(meta.albumCoverFromData(*reader(Bytes())), nullptr) << "Not its file.";
}

TEST_F(KXMDFileMetaMP3Editing, ACoverThatRunsPastTheFileEndsTheRemoval)
{
    Bytes const cover = pictureFrame(ID3::v23, jpeg(10, 10, 100));
    Bytes const file = tagClaiming(
        0x0300, 0, 5000, join(cover, frameClaiming(ID3::v23, 3000, "APIC", zeros(20))));
    auto const data = editable(file);
    EXPECT_FALSE(KXMDFileMetaMP3().removeAlbumCoverFromData(data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(file));
}

TEST_F(KXMDFileMetaMP3Editing, ACoverOfNoSizeEndsTheRemoval)
{
    Bytes const file = tagClaiming(0x0300, 0, 5000,
        join(title(ID3::v23), frameClaiming(ID3::v23, 0xFFFFFFF6, "APIC", zeros(99))));
    auto const data = editable(file);
    EXPECT_FALSE(KXMDFileMetaMP3().removeAlbumCoverFromData(data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(file));
}

TEST_F(KXMDFileMetaMP3Editing, CoversInTheTagsLastTenBytesStay)
{
    Bytes const cover = pictureFrame(ID3::v23, jpeg(10, 10, 100));
    Bytes const frames = join(title(ID3::v23), cover, cover);
    auto const afterFirst = static_cast<std::uint32_t>(10 + title(ID3::v23).size() + cover.size());
    for (std::uint32_t size = afterFirst - 15; size < afterFirst + 15; ++size) {
        auto const data = editable(join(tagClaiming(0x0300, 0, size, frames), sound));
        auto const expected = editable(bytesOf(*data));
        EXPECT_EQ(KXMDFileMetaMP3().removeAlbumCoverFromData(data), removeOneByOne(expected));
        EXPECT_THAT(data->bytes(), ElementsAreArray(expected->bytes())) << size;
    }
}

TEST_F(KXMDFileMetaMP3Editing, AHundredThousandEmptyCoversAreRemoved)
{
    constexpr std::size_t count = 100'000;
    for (ID3 const version : versions) {
        Bytes const cover
            = frameClaiming(version, 1, version == ID3::v22 ? "PIC" : "APIC", zeros(1));
        Bytes const frames = join(title(version), repeated(cover, count));
        auto const length = static_cast<std::uint32_t>(frames.size());
        // Padding after the last, none, and a tag that ends within the last.
        for (std::uint32_t const size : { length + 10, length, length - 3 }) {
            auto const versionWord = static_cast<std::uint32_t>(version);
            auto const data = editable(join(tagClaiming(versionWord, 0, size, frames), sound));
            KXMDFileMetaMP3 meta;
            EXPECT_TRUE(meta.removeAlbumCoverFromData(data));
            EXPECT_LE(data->length(), 10 + title(version).size() + 2 * cover.size() + sound.size());
        }
    }
}

TEST_F(KXMDFileMetaMP3Editing, ManyCoversGoAsTheyWouldOneByOne)
{
    for (ID3 const version : versions) {
        for (std::size_t const count : { 1u, 2u, 300u }) {
            Bytes const cover = pictureFrame(version, jpeg(10, 10, 40));
            Bytes const frames
                = join(title(version), repeated(cover, count), title(version), cover);
            auto const data = editable(join(tag(version, frames), sound));
            auto const expected = editable(bytesOf(*data));
            ASSERT_TRUE(removeOneByOne(expected));
            EXPECT_TRUE(KXMDFileMetaMP3().removeAlbumCoverFromData(data));
            EXPECT_THAT(data->bytes(), ElementsAreArray(expected->bytes()));
        }
    }
}

TEST_F(KXMDFileMetaMP3Editing, CoversThatEndUpPastTheTagStayAndEndNoSearch)
{
    // In a tag that ends with the first byte of a large cover, each large one, once removed, takes
    // the small one before it out of the tag.
    constexpr std::size_t pairs = 150;
    Bytes const small = frame(ID3::v23, "APIC", {});
    Bytes const large = pictureFrame(ID3::v23, zeros(10 * pairs));
    Bytes const first = frame(ID3::v23, "COMM", filled(20 * pairs, 'c'));
    Bytes const frames = join(first, repeated(join(small, large), pairs));
    auto const size = static_cast<std::uint32_t>(10 + frames.size() - large.size() + 1);
    auto const data = editable(join(tagClaiming(0x0300, 0, size, frames), sound));
    auto const expected = editable(bytesOf(*data));
    ASSERT_TRUE(removeOneByOne(expected));
    EXPECT_EQ(expected->length(), 10 + first.size() + pairs * small.size() + sound.size());
    EXPECT_TRUE(KXMDFileMetaMP3().removeAlbumCoverFromData(data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(expected->bytes()));
}

TEST_F(KXMDFileMetaMP3Editing, FramesInEachOtherLoseAHundredCoversAtMost)
{
    // The size wraps: the next frame begins with the last bytes of this size and ends before the
    // covers.
    auto const file = [](std::size_t covers) {
        Bytes const inEachOther = join(text("TXXX"), u32(0xFFFFFFFC), text("AB"), zeros(6));
        return join(
            tag(ID3::v23, join(inEachOther, repeated(pictureFrame(ID3::v23, text("p")), covers))),
            sound);
    };
    auto const hundred = editable(file(100));
    EXPECT_TRUE(KXMDFileMetaMP3().removeAlbumCoverFromData(hundred));
    EXPECT_THAT(hundred->bytes(), ElementsAreArray(file(0)));
    EXPECT_FALSE(KXMDFileMetaMP3().removeAlbumCoverFromData(editable(file(101))));
}

TEST_F(KXMDFileMetaMP3Editing, FrameOfAnIdentifierAndASizeIsInNoOther)
{
    Bytes const shortest = join(text("TXXX"), u32(0xFFFFFFFE)); // 8 in 32 bits.
    Bytes const covers = repeated(pictureFrame(ID3::v23, text("p")), 101);
    auto const data = editable(join(tag(ID3::v23, join(shortest, covers)), sound));
    EXPECT_TRUE(KXMDFileMetaMP3().removeAlbumCoverFromData(data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(join(tag(ID3::v23, shortest), sound)));
}

TEST_F(KXMDFileMetaMP3Editing, RandomTagsLoseTheirCoversAsTheyWouldOneByOne)
{
    LogCapture const log;
    std::mt19937 random(7);
    auto const below
        = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random()) % limit; };
    for (int round = 0; round < 3000; ++round) {
        ID3 const version = versions[below(3)];
        Bytes frames;
        for (std::uint32_t count = below(8); count; --count) {
            bool const isShort = version == ID3::v22;
            std::string_view const cover = isShort ? "PIC" : "APIC",
                                   text = isShort ? "TT2" : "TIT2";
            Bytes const body = filled(below(40), static_cast<std::uint8_t>(below(256)));
            auto size = static_cast<std::uint32_t>(body.size());
            if (below(12) == 0)
                size = below(2) ? 0xFFFFFFF6 + below(10) : size + below(30); // Wraps or lies.
            frames = join(
                std::move(frames), frameClaiming(version, size, below(3) ? cover : text, body));
        }
        auto const length = static_cast<std::uint32_t>(frames.size());
        std::uint32_t const size = below(4) ? length + 10 : length + 30 - below(length + 31);
        auto const versionWord = static_cast<std::uint32_t>(version);
        auto const data = editable(join(tagClaiming(versionWord, 0, size, frames), sound));
        auto const expected = editable(bytesOf(*data));
        KXMDFileMetaMP3 meta;
        ASSERT_EQ(meta.removeAlbumCoverFromData(data), removeOneByOne(expected)) << round;
        ASSERT_EQ(bytesOf(*data), bytesOf(*expected)) << round;
        ASSERT_EQ(meta.filesize(), data->length());
    }
}

TEST_F(KXMDFileMetaMP3Editing, EveryTruncationIsEditedWithoutHarm)
{
    LogCapture const log;
    Bytes const cover = pictureFrame(ID3::v24, jpeg(10, 10, 60));
    Bytes const file = join(tag(ID3::v24, join(cover, title(ID3::v24), cover)), filled(30, 'x'));
    auto const image = imageEncodedAs(jpeg(300, 300, 50));
    for (std::size_t length = 0; length <= file.size(); ++length) {
        Bytes const part(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        auto const data = editable(part), expected = editable(part);
        EXPECT_EQ(KXMDFileMetaMP3().removeAlbumCoverFromData(data), removeOneByOne(expected));
        EXPECT_EQ(bytesOf(*data), bytesOf(*expected));
        auto const other = editable(part);
        KXMDFileMetaMP3 meta;
        if (meta.addAlbumCoverToData(image, other)) {
            EXPECT_EQ(meta.filesize(), other->length());
        }
    }
}

TEST_F(KXMDFileMetaMP3Editing, AnEncodedCoverIsInsertedAsItIs)
{
    Bytes const picture = jpeg(300, 300, 400);
    for (ID3 const version : versions) {
        auto const file = join(tag(version, title(version)), sound);
        auto const data = editable(file), other = editable(file);
        KXMDFileMetaMP3 meta;
        EXPECT_TRUE(meta.addAlbumCoverToData(imageEncodedAs(picture), data));
        EXPECT_TRUE(meta.addEncodedAlbumCoverToData(KXData(picture), other));
        EXPECT_THAT(other->bytes(), ElementsAreArray(bytesOf(*data)));
        EXPECT_EQ(
            meta.albumCoverSizeForEncodedImage(KXData(picture)), data->length() - file.size());
        EXPECT_EQ(meta.albumCoverSizeForEncodedImage({}), 0u);
        EXPECT_FALSE(meta.addEncodedAlbumCoverToData({}, other));
        EXPECT_FALSE(meta.addEncodedAlbumCoverToData(KXData(picture), nullptr));
    }
    EXPECT_EQ(machine.pictureLoader->encodings(), std::size(versions));
    EXPECT_EQ(KXMDFileMetaMP3().albumCoverSizeForEncodedImage(KXData(picture)), 0u)
        << "No version.";
}
