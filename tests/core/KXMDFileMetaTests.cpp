#include "kxmd/core/KXMDFileMeta.h"

#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "support/Fields.h"
#include "support/Files.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <thread>

using namespace build;

namespace {

/// Nothing but the defaults.
class BaseMeta final : public KXMDFileMeta {
public:
    BaseMeta() = default;

    using KXMDFileMeta::setFilesize;
};

/// A file of which the cover questions have chosen answers.
class CoverMeta final : public KXMDFileMeta {
public:
    explicit CoverMeta(bool hasValidAlbumCover)
        : _hasValidAlbumCover(hasValidAlbumCover)
    {
    }

    bool hasValidAlbumCover() const override { return _hasValidAlbumCover; }
    std::uint64_t albumCoverSizeForImage(ImageRef const& image) const override
    {
        return image ? 1000 : 200;
    }
    std::uint64_t albumCoverSizeForEmbeddedTags() const override { return 30; }

private:
    bool const _hasValidAlbumCover;
};

/// Only handed on here, so any address serves.
KXMDFileMeta::ImageRef someImage()
{
    static int const picture = 0;
    return { KXMDFileMeta::ImageRef(), reinterpret_cast<KXImage const*>(&picture) };
}

}

TEST(KXMDFileMeta, DetectsTypesByTheFirstBytes)
{
    struct {
        Bytes bytes;
        KXMDMetaType type;
    } const cases[] {
        { text("ID3"), KXMDMetaTypeMP3 },
        { text("ID3\4ftyp"), KXMDMetaTypeMP3 }, // Asked first.
        { text("ID2\4...."), KXMDMetaTypeUnknown },
        { text("id3\4...."), KXMDMetaTypeUnknown },
        { text("....ftyp"), KXMDMetaTypeMP4 },
        { text("....moov"), KXMDMetaTypeMP4 },
        { text("....mdat"), KXMDMetaTypeUnknown },
        { text("....fty"), KXMDMetaTypeUnknown },
        { text(".....ftyp"), KXMDMetaTypeUnknown },
        { bytes({ 0xFF, 0xD8 }), KXMDMetaTypeJPEG },
        { bytes({ 0xFF, 0xD8, 0xFF, 0xE0, 'm', 'o', 'o', 'v' }), KXMDMetaTypeMP4 },
        { bytes({ 0xD8, 0xFF, 0, 0 }), KXMDMetaTypeUnknown },
        { zeros(64), KXMDMetaTypeUnknown },
    };
    for (auto const& [bytes, type] : cases) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        EXPECT_EQ(KXMDFileMeta::metaTypeForData(*reader(bytes)), type);
    }
}

TEST(KXMDFileMeta, FewerThanThreeBytesAreOfUnknownType)
{
    for (Bytes const& few : { Bytes(), bytes({ 'I' }), bytes({ 'I', 'D' }), bytes({ 0xFF }) })
        EXPECT_EQ(KXMDFileMeta::metaTypeForData(*reader(few)), KXMDMetaTypeUnknown);
}

TEST(KXMDFileMeta, DetectionBeginsAndEndsAtZero)
{
    for (Bytes const& bytes : { text("ID3...."), text("....ftyp...."), text("....moov"),
             join(u16(0xFFD8), zeros(9)), zeros(20), text("x"), Bytes() }) {
        auto const data = reader(bytes);
        auto const type = KXMDFileMeta::metaTypeForData(*data);
        EXPECT_EQ(data->offset(), 0u);
        data->setOffset(5);
        EXPECT_EQ(KXMDFileMeta::metaTypeForData(*data), type);
        EXPECT_EQ(data->offset(), 0u);
    }
}

TEST(KXMDFileMeta, TheClassFollowsTheType)
{
    auto const mp3 = KXMDFileMeta::fileMetaWithAbstractData(*reader(tag(ID3::v23, {})));
    EXPECT_TRUE(std::dynamic_pointer_cast<KXMDFileMetaMP3>(mp3));
    EXPECT_EQ(mp3->metaType(), 1);

    auto const mp4 = KXMDFileMeta::fileMetaWithAbstractData(*reader(ftyp()));
    EXPECT_TRUE(std::dynamic_pointer_cast<KXMDFileMetaMP4>(mp4));
    EXPECT_EQ(mp4->metaType(), 2);

    auto const other = KXMDFileMeta::fileMetaWithAbstractData(*reader(text("plain text")));
    EXPECT_TRUE(std::dynamic_pointer_cast<KXMDFileMetaEmpty>(other));
    EXPECT_EQ(other->metaType(), 0);
    EXPECT_EQ(other->filesize(), 10u);
}

TEST(KXMDFileMeta, JPEGGetsAnEmptyObjectOfUnknownType)
{
    auto const data = reader(jpeg(16, 16));
    EXPECT_EQ(KXMDFileMeta::metaTypeForData(*data), KXMDMetaTypeJPEG);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*data);
    EXPECT_TRUE(std::dynamic_pointer_cast<KXMDFileMetaEmpty>(meta));
    EXPECT_EQ(meta->metaType(), 0);
    EXPECT_EQ(meta->filesize(), data->length());
}

TEST(KXMDFileMeta, ReaderThatCannotBeParsedGivesNull)
{
    LogCapture const log;
    Bytes const unsynchronised = tag(ID3::v23, {}, 0x80);
    EXPECT_FALSE(KXMDFileMeta::fileMetaWithAbstractData(*reader(unsynchronised)));
}

TEST(KXMDFileMeta, PathThatCannotBeParsedGivesAnEmptyObjectThatKnowsTheSize)
{
    LogCapture const log;
    TemporaryFolder const folder;
    Bytes const unsynchronised = tag(ID3::v23, {}, 0x80);
    auto const meta = KXMDFileMeta::fileMetaWithSourcePath(folder.write("a.mp3", unsynchronised));
    EXPECT_TRUE(std::dynamic_pointer_cast<KXMDFileMetaEmpty>(meta));
    EXPECT_EQ(meta->metaType(), 0);
    EXPECT_EQ(meta->filesize(), unsynchronised.size());
}

TEST(KXMDFileMeta, PathThatCannotBeOpenedGivesAnEmptyObjectOfSizeZero)
{
    TemporaryFolder const folder;
    for (std::string const& path :
        { (folder.path() / "missing").string(), folder.path().string(), std::string() }) {
        auto const meta = KXMDFileMeta::fileMetaWithSourcePath(path);
        ASSERT_TRUE(meta);
        EXPECT_TRUE(std::dynamic_pointer_cast<KXMDFileMetaEmpty>(meta));
        EXPECT_EQ(meta->filesize(), 0u);
    }
}

TEST(KXMDFileMeta, PathThatCanBeParsedGivesItsTags)
{
    TemporaryFolder const folder;
    auto const meta = KXMDFileMeta::fileMetaWithSourcePath(
        folder.write("a.mp3", tag(ID3::v23, textFrame(ID3::v23, "TIT2", "Blue"))));
    EXPECT_EQ(meta->metaType(), 1);
    EXPECT_EQ(meta->metadataForKey("Name"), "Blue");
}

TEST(KXMDFileMeta, KeysAreTheSharedVocabulary)
{
    EXPECT_EQ(KXMDMetadataKeyName, "Name");
    EXPECT_EQ(KXMDMetadataKeyArtist, "Artist");
    EXPECT_EQ(KXMDMetadataKeyAlbum, "Album");
    EXPECT_EQ(KXMDMetadataKeyAlbumArtist, "Album Artist");
}

TEST(KXMDFileMeta, BaseHasNoMediaAndNoPlaceForACover)
{
    BaseMeta meta;
    EXPECT_FALSE(meta.metadataForKey("Name"));
    EXPECT_FALSE(meta.containsVideo());
    EXPECT_TRUE(meta.videoCodecsInfo().empty());
    EXPECT_TRUE(meta.audioCodecsInfo().empty());
    EXPECT_TRUE(meta.hasValidAlbumCover());
    EXPECT_FALSE(meta.canInsertAlbumCover());
    EXPECT_FALSE(meta.albumCoverFromData(*reader(jpeg(300, 300))));
    EXPECT_EQ(meta.albumCoverSizeForImage(someImage()), 0u);
    EXPECT_EQ(meta.albumCoverSizeForEmbeddedTags(), 0u);

    auto const data = std::make_shared<KXMutableData>(text("data"));
    EXPECT_FALSE(meta.removeAlbumCoverFromData(data));
    EXPECT_FALSE(meta.addAlbumCoverToData(someImage(), data));
    EXPECT_EQ(data->length(), 4u);
}

TEST(KXMDFileMeta, BaseParsesAnythingAndKeepsTheLength)
{
    BaseMeta meta;
    EXPECT_TRUE(meta.parseAbstractData(*reader(zeros(17))));
    EXPECT_EQ(meta.filesize(), 17u);
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(someImage()), 17u);
}

TEST(KXMDFileMeta, HasTheseFields)
{
    auto const atom = KXMP4Atom::atomWithAbstractData(*reader(ftyp()));
    using Meta = BaseMeta;
    expectFields<Meta>({
        field<Meta>(
            "metaType", &Meta::metaType, &Meta::setMetaType, KXMDMetaTypeUnknown, KXMDMetaTypeJPEG),
        field<Meta>("mp4Atom", &Meta::mp4Atom, &Meta::setMp4Atom, nullptr, atom),
        field<Meta>("filesize", &Meta::filesize, &Meta::setFilesize, 0, 17),
    });
}

TEST(KXMDFileMeta, TagsAreKeptReplacedAndCleared)
{
    BaseMeta meta;
    meta.setMetadataForKey("Blue", "Name");
    meta.setMetadataForKey("Ann", "Artist");
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
    meta.setMetadataForKey("", "Name");
    EXPECT_EQ(meta.metadataForKey("Name"), "");
    EXPECT_EQ(meta.metadataForKey("Artist"), "Ann");
    EXPECT_FALSE(meta.metadataForKey("artist"));
    meta.clearMetadata();
    EXPECT_FALSE(meta.metadataForKey("Name"));
    EXPECT_FALSE(meta.metadataForKey("Artist"));
}

TEST(KXMDFileMeta, AnEmptyKeyKeepsNothing)
{
    BaseMeta meta;
    meta.setMetadataForKey("Blue", "");
    EXPECT_FALSE(meta.metadataForKey(""));
}

TEST(KXMDFileMeta, AnAbsentValueLeavesTheTagAsItWas)
{
    BaseMeta meta;
    meta.setMetadataForKey("Blue", "Name");
    meta.setMetadataForKey(std::nullopt, "Name");
    meta.setMetadataForKey(std::nullopt, "Artist");
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
    EXPECT_FALSE(meta.metadataForKey("Artist"));
}

TEST(KXMDFileMeta, SizeWithCoverExchangesTheCovers)
{
    CoverMeta meta(false);
    meta.parseAbstractData(*reader(zeros(500)));
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(someImage()), 500u - 30 + 1000);
}

TEST(KXMDFileMeta, SizeWithCoverIsTheFileSizeWhenTheCoverIsValid)
{
    CoverMeta meta(true);
    meta.parseAbstractData(*reader(zeros(500)));
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(someImage()), 500u);
}

TEST(KXMDFileMeta, SizeWithCoverOfASmallFileDoesNotWrap)
{
    CoverMeta meta(false);
    meta.parseAbstractData(*reader(zeros(10)));
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(someImage()), 980u);
}

TEST(KXMDFileMeta, SizeWithCoverKeepsItsFirstAnswerWhateverTheImage)
{
    CoverMeta meta(false);
    meta.parseAbstractData(*reader(zeros(500)));
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(nullptr), 670u);
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(someImage()), 670u);
    meta.parseAbstractData(*reader(zeros(90)));
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(someImage()), 670u);
}

TEST(KXMDFileMeta, SizeWithCoverOfZeroIsAskedForAgain)
{
    BaseMeta meta;
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(nullptr), 0u);
    meta.parseAbstractData(*reader(zeros(90)));
    EXPECT_EQ(meta.filesizeWithValidAlbumCover(nullptr), 90u);
}

TEST(KXMDFileMeta, TagsMayBeReadWhileAnotherThreadSetsThem)
{
    BaseMeta meta;
    std::string const one(100, '1'),
        two(200, '2'); // Too long to be kept inside of a string object.
    std::jthread const writer([&] {
        for (int i = 0; i < 2000; ++i) {
            meta.setMetadataForKey(i % 2 ? one : two, "Name");
            if (i % 10 == 0)
                meta.clearMetadata();
        }
    });
    for (int i = 0; i < 2000; ++i) {
        auto const name = meta.metadataForKey("Name");
        ASSERT_TRUE(!name || *name == one || *name == two);
    }
}

namespace {

/// A song whose bytes from `end` on the system refuses to read.
class DamagedData final : public KXAbstractData {
public:
    explicit DamagedData(std::uint64_t end)
        : _end(end)
    {
    }

    std::uint64_t length() const override { return _song.size(); }

private:
    std::uint8_t const* bytesAt(std::uint64_t position, std::size_t count) override
    {
        if (position + count <= _end)
            return _song.data() + position;
        keepReadError({ EIO, std::system_category() });
        return nullptr;
    }
    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        auto const* const bytes = bytesAt(position, count);
        return bytes ? std::copy_n(bytes, count, target) - target : 0;
    }

    Bytes const _song = tag(ID3::v23, textFrame(ID3::v23, "TIT2", "Title"));
    std::uint64_t const _end;
};

}

TEST(KXMDFileMeta, KeepsTheReadErrorOfItsReader)
{
    std::error_code const error { EIO, std::system_category() };
    for (std::uint64_t const end : { 0, 5, 15, 22 }) {
        DamagedData data(end);
        EXPECT_EQ(KXMDFileMeta::fileMetaWithAnyAbstractData(data)->readError(), error) << end;
    }
    DamagedData parsed(15);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(parsed);
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->readError(), error);
    DamagedData whole(1000);
    EXPECT_FALSE(KXMDFileMeta::fileMetaWithAnyAbstractData(whole)->readError());
}

TEST(KXMDFileMeta, ReadErrorTellsWhyAFileCannotBeOpened)
{
    TemporaryFolder const folder;
    auto const errorOf = [](std::string const& path) {
        return KXMDFileMeta::fileMetaWithSourcePath(path)->readError();
    };
    EXPECT_EQ(errorOf(folder.path() / "missing"), std::errc::no_such_file_or_directory);
    EXPECT_EQ(errorOf(folder.write("file", text("x")) + "/below"), std::errc::not_a_directory);
    EXPECT_FALSE(errorOf(folder.write("song.mp3", text("x"))));
    errno = EIO; // Of another call: a folder was not even opened.
    EXPECT_FALSE(errorOf(folder.path()));
}

TEST(KXAbstractData, KeepsTheFirstReadError)
{
    class Failing final : public KXAbstractData {
    public:
        using KXAbstractData::keepReadError;
        std::uint64_t length() const override { return 0; }

    private:
        std::uint8_t const* bytesAt(std::uint64_t, std::size_t) override { return nullptr; }
        std::uint64_t copyBytesAt(std::uint64_t, std::uint8_t*, std::uint64_t) override
        {
            return 0;
        }
    };
    Failing data;
    EXPECT_FALSE(data.readError());
    data.keepReadError(std::make_error_code(std::errc::io_error));
    data.keepReadError(std::make_error_code(std::errc::no_such_device));
    EXPECT_EQ(data.readError(), std::errc::io_error);
}
