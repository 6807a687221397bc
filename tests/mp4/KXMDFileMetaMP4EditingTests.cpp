#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"

#include "kxmd/mp4/atoms/KXMP4AtomCovr.h"
#include "support/AtomTrees.h"
#include "support/CoverTest.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <random>

using namespace build;
using testing::ElementsAreArray;

namespace {

constexpr std::string_view coverPath = "moov/udta/meta/ilst/covr";

Bytes const title = tagAtom("\xA9nam", "Title");
Bytes const band = tagAtom("aART", "Band");
Bytes const media = filled(80, 'm');

Bytes const smallCover = covr(13, jpeg(8, 8, 100));

/// A song with these tags; its only chunk is all of its media.
Bytes songWithTags(Bytes const& tags)
{
    auto const moov = [&tags](std::uint32_t position) {
        return atom(
            "moov", track("soun", stsd(soundEntry("mp4a")), { position }), userDataWithTags(tags));
    };
    auto const position = static_cast<std::uint32_t>(ftyp().size() + moov(0).size() + 8);
    return join(ftyp(), moov(position), atom("mdat", media));
}

KXMutableData::Ref editable(Bytes bytes)
{
    return std::make_shared<KXMutableData>(std::move(bytes));
}

std::shared_ptr<KXMDFileMetaMP4> metaOf(KXMutableData::Ref const& data)
{
    auto meta = std::make_shared<KXMDFileMetaMP4>();
    EXPECT_TRUE(meta->parseAbstractData(*KXMutableAbstractData::abstractDataWithData(data)));
    return meta;
}

/// Whether the only chunk is still all of the media.
bool keepsMedia(KXMutableData const& data)
{
    auto const root = treeOf(Bytes(data.bytes().begin(), data.bytes().end()));
    auto const table = lastAtom(root, "moov/trak/mdia/minf/stbl/stco");
    std::uint32_t position = 0;
    return table && data.readUInt32ToAt(position, table->offset() + 16)
        && position + media.size() == data.length()
        && std::ranges::equal(data.bytes().subspan(position), media);
}

}

class KXMDFileMetaMP4Editing : public CoverTest { };

TEST_F(KXMDFileMetaMP4Editing, CoversAreJudgedByWidestAndHighest)
{
    struct Case {
        Bytes covers;
        bool isValid;
    };
    Case const cases[] {
        { {}, false },
        { covr(13, jpeg(200, 200)), true },
        { covr(13, jpeg(199, 300)), false },
        { covr(14, png(300, 199)), false },
        { join(covr(13, jpeg(150, 400)), covr(14, png(400, 150))), true },
        { covr(13, text("no picture")), false },
    };
    for (auto const& [covers, isValid] : cases)
        EXPECT_EQ(
            metaOf(editable(songWithTags(join(covers, title))))->hasValidAlbumCover(), isValid);
}

TEST_F(KXMDFileMetaMP4Editing, FractionsOfAPixelDoNotMakeACoverLargeEnough)
{
    auto const meta = metaOf(editable(songWithTags(smallCover)));
    auto const cover = std::dynamic_pointer_cast<KXMP4AtomCovr>(
        meta->mp4Atom()->allAtomsWithPath(coverPath).front());
    cover->setAlbumCoverSize({ 199.5, 300 });
    EXPECT_FALSE(meta->hasValidAlbumCover());
    cover->setAlbumCoverSize({ 200, 200 });
    EXPECT_TRUE(meta->hasValidAlbumCover());
}

TEST_F(KXMDFileMetaMP4Editing, WritesTheCoverAtom)
{
    Bytes const picture = jpeg(300, 300, 40'000);
    auto const image = imageEncodedAs(picture);
    KXMDFileMetaMP4 const meta;
    auto const atom = meta.albumCoverAtomDataForImage(image);
    EXPECT_EQ(atom.length(), 40'024u);
    EXPECT_EQ(meta.albumCoverSizeForImage(image), 40'024u);
    EXPECT_THAT(atom.bytes(),
        ElementsAreArray(
            join(bytes({ 0, 0, 0x9C, 0x58 }), text("covr"), bytes({ 0, 0, 0x9C, 0x50 }),
                text("data"), bytes({ 0, 0, 0, 13, 0, 0, 0, 0 }), picture)));
}

TEST_F(KXMDFileMetaMP4Editing, WithoutAPictureThereIsNoAtom)
{
    KXMDFileMetaMP4 const meta;
    EXPECT_EQ(meta.albumCoverSizeForImage(nullptr), 0u);
    EXPECT_EQ(meta.albumCoverSizeForImage(imageEncodedAs({})), 0u);
}

TEST_F(KXMDFileMetaMP4Editing, ATagListOfATitleTakesTheCoverInFrontOfIt)
{
    Bytes const picture = jpeg(300, 300, 500);
    auto const data = editable(songWithTags(title));
    KXMDFileMetaMP4 meta;
    EXPECT_TRUE(meta.addAlbumCoverToData(imageEncodedAs(picture), data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(songWithTags(join(covr(13, picture), title))));
    EXPECT_TRUE(meta.hasValidAlbumCover());
    EXPECT_EQ(meta.metadataForKey("Name"), "Title");
    EXPECT_EQ(meta.filesize(), data->length());
}

TEST_F(KXMDFileMetaMP4Editing, ThreeCoversGoAndTheNewOneBecomesTheLastTagButOne)
{
    Bytes const picture = jpeg(300, 300, 500);
    Bytes const other = covr(14, png(10, 10));
    auto const data = editable(songWithTags(join(smallCover, band, other, title, smallCover)));
    KXMDFileMetaMP4 meta;
    EXPECT_TRUE(meta.addAlbumCoverToData(imageEncodedAs(picture), data));
    EXPECT_THAT(
        data->bytes(), ElementsAreArray(songWithTags(join(band, covr(13, picture), title))));
    EXPECT_TRUE(meta.removeAlbumCoverFromData(data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(songWithTags(join(band, title))));
    EXPECT_EQ(meta.albumCoverSizeForEmbeddedTags(), 0u);
}

TEST_F(KXMDFileMetaMP4Editing, CoversOfEveryTagListGo)
{
    auto const file = [](Bytes const& cover) {
        return join(ftyp(),
            atom("moov", userDataWithTags(join(cover, title)), userDataWithTags(join(band, cover)),
                track("soun", stsd(soundEntry("mp4a")), {})));
    };
    auto const data = editable(file(smallCover));
    EXPECT_TRUE(KXMDFileMetaMP4().removeAlbumCoverFromData(data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(file({})));
}

TEST_F(KXMDFileMetaMP4Editing, AFileOf64BitTablesIsNeverEdited)
{
    Bytes const table = atom("co64", u32(0), u32(1), u64(5000));
    Bytes const sound = atom("trak",
        atom("mdia", hdlr("soun"), atom("minf", atom("stbl", stsd(soundEntry("mp4a")), table))));
    Bytes const file = join(ftyp(), atom("moov", sound, userDataWithTags(join(smallCover, title))));
    auto const data = editable(file);
    EXPECT_FALSE(metaOf(data)->canInsertAlbumCover());
    EXPECT_FALSE(KXMDFileMetaMP4().removeAlbumCoverFromData(data));
    EXPECT_FALSE(KXMDFileMetaMP4().addAlbumCoverToData(imageEncodedAs(jpeg(300, 300)), data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(file));
}

TEST_F(KXMDFileMetaMP4Editing, NothingIsCreatedForACover)
{
    auto const sound = track("soun", stsd(soundEntry("mp4a")), {});
    auto const image = imageEncodedAs(jpeg(300, 300));
    for (auto const& moov : { atom("moov", sound), atom("moov", sound, atom("udta")),
             atom("moov", sound, atom("udta", atom("meta", u32(0), hdlr("mdir")))) }) {
        Bytes const file = join(ftyp(), moov);
        auto const data = editable(file);
        EXPECT_FALSE(metaOf(data)->canInsertAlbumCover());
        EXPECT_TRUE(KXMDFileMetaMP4().removeAlbumCoverFromData(data));
        EXPECT_FALSE(KXMDFileMetaMP4().addAlbumCoverToData(image, data));
        EXPECT_THAT(data->bytes(), ElementsAreArray(file));
    }
}

TEST_F(KXMDFileMetaMP4Editing, AnEmptyTagListCannotTakeACover)
{
    // It says it could: only the list's presence is asked for.
    auto const data = editable(songWithTags({}));
    EXPECT_TRUE(metaOf(data)->canInsertAlbumCover());
    EXPECT_FALSE(KXMDFileMetaMP4().addAlbumCoverToData(imageEncodedAs(jpeg(300, 300)), data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(songWithTags({})));
}

TEST_F(KXMDFileMetaMP4Editing, RemovedCoversStayRemovedWhenTheNewOneCannotBeAdded)
{
    auto const data = editable(songWithTags(smallCover));
    EXPECT_FALSE(KXMDFileMetaMP4().addAlbumCoverToData(imageEncodedAs(jpeg(300, 300)), data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(songWithTags({})));
    auto const other = editable(songWithTags(join(smallCover, title)));
    EXPECT_FALSE(KXMDFileMetaMP4().addAlbumCoverToData(nullptr, other));
    EXPECT_THAT(other->bytes(), ElementsAreArray(songWithTags(title)));
}

TEST_F(KXMDFileMetaMP4Editing, TheFirstCoverThatDecodesIsFoundAfterItsHeaders)
{
    Bytes const unreadable = covr(13, text("broken")), readable = covr(13, text("picture"));
    auto const image = pictures::solid(3, 3, pictures::green);
    machine.pictureLoader->setImageForWord(image, "picture");
    auto const file = songWithTags(join(unreadable, readable, unreadable, title));
    EXPECT_EQ(metaOf(editable(file))->albumCoverFromData(*reader(file)), image);
    using Call = FakePictureLoader::Call;
    EXPECT_EQ(machine.pictureLoader->calls(),
        (std::vector<Call> { { "broken", {} }, { "picture", {} } }));
}

TEST_F(KXMDFileMetaMP4Editing, ACoverMayEndWithTheFileAndNotPastIt)
{
    auto const image = pictures::solid(3, 3, pictures::green);
    machine.pictureLoader->setImageForWord(image, "picture");
    Bytes file = join(ftyp(), atom("moov", userDataWithTags(covr(13, text("picture")))));
    auto const meta = metaOf(editable(file));
    EXPECT_EQ(meta->albumCoverFromData(*reader(file)), image);
    file.pop_back();
    EXPECT_EQ(meta->albumCoverFromData(*reader(file)), nullptr);
    EXPECT_EQ(machine.pictureLoader->calls().size(), 1u);
}

TEST_F(KXMDFileMetaMP4Editing, ACoverEndsWithItsValueOrItsAtom)
{
    // The value claims less and more than the atom holds.
    auto const coverClaiming = [](std::uint32_t size) {
        return atom("covr", u32(size), text("data"), u32(13), u32(0), text("picture"));
    };
    auto const file = songWithTags(join(coverClaiming(16 + 4), coverClaiming(16 + 400),
        coverClaiming(16), coverClaiming(3), title));
    static_cast<void>(metaOf(editable(file))->albumCoverFromData(*reader(file)));
    using Call = FakePictureLoader::Call;
    EXPECT_EQ(machine.pictureLoader->calls(),
        (std::vector<Call> {
            { "pict", {} }, { "picture", {} }, { "picture", {} }, { "picture", {} } }));
}

TEST_F(KXMDFileMetaMP4Editing, ACoverWithoutItsHeadersIsReadWhole)
{
    auto const file = songWithTags(join(atom("covr", text("no data but a picture here")), title));
    static_cast<void>(metaOf(editable(file))->albumCoverFromData(*reader(file)));
    ASSERT_EQ(machine.pictureLoader->calls().size(), 1u);
    EXPECT_THAT(machine.pictureLoader->calls().front().word, testing::HasSubstr("covrno data but"));

    auto const empty = songWithTags(join(covr(13, {}), title));
    static_cast<void>(metaOf(editable(empty))->albumCoverFromData(*reader(empty)));
    ASSERT_EQ(machine.pictureLoader->calls().size(), 2u);
    EXPECT_EQ(machine.pictureLoader->calls().back().word.size(), covr(13, {}).size());
}

TEST_F(KXMDFileMetaMP4Editing, CoversThatDoNotDecodeOrAreNotThereAreNotRead)
{
    auto const file = songWithTags(join(covr(13, text("broken")), title));
    auto const meta = metaOf(editable(file));
    EXPECT_EQ(meta->albumCoverFromData(*reader(file)), nullptr);
    EXPECT_EQ(meta->albumCoverFromData(*reader(Bytes())), nullptr) << "Not its file.";
    EXPECT_EQ(KXMDFileMetaMP4().albumCoverFromData(*reader(file)), nullptr);
    EXPECT_EQ(machine.pictureLoader->calls().size(), 1u);
}

TEST_F(KXMDFileMetaMP4Editing, ACoverThatCannotBeRemovedEndsTheRemovalAndTheAddition)
{
    // It claims more than the file has.
    Bytes const tooLong = atomClaiming(5000, "covr", zeros(8));
    auto const file = join(ftyp(),
        atom("moov", track("soun", stsd(soundEntry("mp4a")), { 40 }),
            userDataWithTags(join(title, tooLong))));
    auto const data = editable(file);
    KXMDFileMetaMP4 meta;
    EXPECT_FALSE(meta.removeAlbumCoverFromData(data));
    EXPECT_FALSE(meta.addAlbumCoverToData(imageEncodedAs(jpeg(300, 300, 50)), data));
    EXPECT_THAT(data->bytes(), ElementsAreArray(file));
}

TEST_F(KXMDFileMetaMP4Editing, RandomFilesKeepTheirMediaAndThePredictedSize)
{
    std::mt19937 random(11);
    auto const below
        = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random()) % limit; };
    for (int round = 0; round < 500; ++round) {
        Bytes tags, tagsWithoutCovers;
        for (std::uint32_t count = below(8); count; --count) {
            bool const isCover = below(2);
            Bytes const tag = isCover ? covr(13, jpeg(8 + below(150), 8, 60 + below(200))) : title;
            tags = join(std::move(tags), tag);
            tagsWithoutCovers = join(std::move(tagsWithoutCovers), isCover ? Bytes() : tag);
        }
        auto const image = imageEncodedAs(jpeg(300, 300, 100 + below(900)));
        auto const data = editable(songWithTags(tags));
        auto const meta = metaOf(data);
        auto const predicted = meta->filesizeWithValidAlbumCover(image);
        bool const isAdded = meta->addAlbumCoverToData(image, data);
        EXPECT_EQ(isAdded, !tagsWithoutCovers.empty());
        EXPECT_TRUE(keepsMedia(*data));
        EXPECT_EQ(meta->mp4Atom()->allPaths(), treeOf(bytesOf(*data))->allPaths());
        if (isAdded) {
            EXPECT_EQ(data->length(), predicted);
        }
        EXPECT_TRUE(meta->removeAlbumCoverFromData(data));
        EXPECT_THAT(data->bytes(), ElementsAreArray(songWithTags(tagsWithoutCovers)));
    }
}

TEST_F(KXMDFileMetaMP4Editing, EveryTruncationIsEditedWithoutHarm)
{
    LogCapture const log;
    auto const file = songWithTags(join(smallCover, title, smallCover));
    auto const image = imageEncodedAs(jpeg(300, 300, 50));
    for (std::size_t length = 0; length <= file.size(); ++length) {
        Bytes const part(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        auto const data = editable(part);
        KXMDFileMetaMP4 meta;
        bool const isRemoved = meta.removeAlbumCoverFromData(data);
        EXPECT_LE(data->length(), length);
        if (isRemoved) {
            EXPECT_EQ(meta.albumCoverSizeForEmbeddedTags(), 0u);
        }
        auto const other = editable(part);
        KXMDFileMetaMP4().addAlbumCoverToData(image, other);
    }
}

TEST_F(KXMDFileMetaMP4Editing, TooManyCoversForTheAtomsOfTheFileAreNotRemoved)
{
    LogCapture const log;
    struct Case {
        std::size_t covers, otherAtoms;
        bool areRemoved;
    };
    Case const cases[] {
        { 1000, 0, true },
        { 100'000, 0, false },
        { 3, 400'000, true },
        { 100, 400'000, false },
    };
    for (auto const& [covers, otherAtoms, areRemoved] : cases) {
        Bytes const others = concatenated(std::vector<Bytes>(otherAtoms, atom("free")));
        Bytes const all = concatenated(std::vector<Bytes>(covers, atom("covr")));
        auto const file = join(songWithTags(join(all, title)), others);
        auto const data = editable(file);
        EXPECT_EQ(KXMDFileMetaMP4().removeAlbumCoverFromData(data), areRemoved);
        EXPECT_EQ(bytesOf(*data), areRemoved ? join(songWithTags(title), others) : file);
    }
    std::string const refusal = "Metadata: KXMDFileMetaMP4->too many album covers, none is removed";
    EXPECT_EQ(log.lines(), std::vector<std::string>(2, refusal));
}

TEST_F(KXMDFileMetaMP4Editing, ACoverThatTakesTheLastTableAlongLeavesNoPlaceForANewOne)
{
    // The cover claims the bytes of the track that follows the user data.
    Bytes const sound = track("soun", stsd(soundEntry("mp4a")), { 40 });
    Bytes const rest = join(title, sound);
    Bytes const cover = atomClaiming(static_cast<std::uint32_t>(8 + rest.size()), "covr");
    Bytes const list = atom("ilst", atom("----", zeros(1000)), cover, title);
    Bytes const userData = atom("udta", atom("meta", u32(0), hdlr("mdir"), list));
    auto const data = editable(join(ftyp(), atom("moov", userData, sound)));
    KXMDFileMetaMP4 meta;
    EXPECT_TRUE(meta.removeAlbumCoverFromData(data));
    EXPECT_FALSE(meta.canInsertAlbumCover());
    auto const other = editable(join(ftyp(), atom("moov", userData, sound)));
    EXPECT_FALSE(meta.addAlbumCoverToData(imageEncodedAs(jpeg(300, 300, 400)), other));
    EXPECT_THAT(other->bytes(), ElementsAreArray(bytesOf(*data))) << "Nothing was inserted.";
}

TEST_F(KXMDFileMetaMP4Editing, AnEncodedCoverIsInsertedAsItIs)
{
    Bytes const picture = jpeg(300, 300, 400);
    auto const image = imageEncodedAs(picture);
    auto const data = editable(songWithTags(title)), other = editable(songWithTags(title));
    KXMDFileMetaMP4 meta;
    EXPECT_TRUE(meta.addAlbumCoverToData(image, data));
    EXPECT_EQ(machine.pictureLoader->encodings(), 1u);
    EXPECT_TRUE(meta.addEncodedAlbumCoverToData(KXData(picture), other));
    EXPECT_EQ(meta.albumCoverSizeForEncodedImage(KXData(picture)), picture.size() + 24);
    EXPECT_EQ(meta.albumCoverSizeForEncodedImage({}), 0u);
    EXPECT_EQ(machine.pictureLoader->encodings(), 1u);
    EXPECT_THAT(other->bytes(), ElementsAreArray(bytesOf(*data)));
    EXPECT_FALSE(meta.addEncodedAlbumCoverToData({}, other));
    EXPECT_FALSE(meta.addEncodedAlbumCoverToData(KXData(picture), nullptr));
    EXPECT_FALSE(meta.removeAlbumCoverFromData(nullptr));
}

TEST_F(KXMDFileMetaMP4Editing, CoversAreEncodedByThePlatformThatWasGiven)
{
    FakeMachine const given;
    given.pictureLoader->setJPGRepresentation(KXData(zeros(100)));
    KXMDFileMetaMP4 meta;
    auto const image = imageEncodedAs(jpeg(300, 300, 400));
    meta.setPlatform(given.platform());
    EXPECT_EQ(meta.albumCoverSizeForImage(image), 124u);
    EXPECT_EQ(machine.pictureLoader->encodings(), 0u);
}
