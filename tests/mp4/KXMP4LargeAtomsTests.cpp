// Files whose media has a 64-bit size: what kind they are, and what is removed from them.

#include "kxmd/mp4/KXMP4CameraData.h"
#include "kxmd/mp4/KXMP4MovieKind.h"
#include "support/EditableMovies.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/LyingSizes.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

using namespace build;
using editable::co64;
using editable::largeAtom;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

Bytes const fileType = atom("ftyp", text("isom"), u32(0));
Bytes const samples = filled(64, 'm');
Bytes const largeMedia = largeAtom("mdat", samples);
std::uint32_t const inMedia = static_cast<std::uint32_t>(fileType.size()) + 16;

Bytes const place = atom("udta", atom("\xA9xyz", u16(9), u16(0), text("+40.6-111")));
Bytes const xmpType = bytes({ 0xBE, 0x7A, 0xCF, 0xCB, 0x97, 0xA9, 0x42, 0xE8, 0x9C, 0x71, 0x99,
    0x94, 0x91, 0xE3, 0xAF, 0xAC });
Bytes const xmp = join(xmpType, text("<x:xmpmeta/>"));

Bytes sampleTable(Bytes const& chunks)
{
    return atom("stbl", stsd(videoEntry("avc1", 8, 8)), chunks);
}

Bytes trackOf(Bytes const& chunks, Bytes const& others = {})
{
    return atom("trak", others, atom("mdia", hdlr("vide"), atom("minf", sampleTable(chunks))));
}

std::string reasonAgainst(Bytes const& file)
{
    return KXMP4CameraData::reasonAgainstRemovingFromData(*reader(file)).value_or("");
}

std::uint64_t bytesIn(Bytes const& file) { return KXMP4CameraData::bytesInData(*reader(file)); }

Bytes cleaned(Bytes const& file)
{
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_TRUE(KXMP4CameraData::removeFromData(data));
    return { data->bytes().begin(), data->bytes().end() };
}

bool isRecording(Bytes const& file)
{
    auto const kind = KXMP4MovieKind::kindOfData(*reader(file));
    return kind && kind->isRecording();
}

/// Whether all that `data` adds to a movie is removed again, without harm and as was foretold.
void expectRemovedFrom(std::function<Bytes(Bytes const& data)> const& movieWith, Bytes const& data)
{
    Bytes const file = movieWith(data), bare = movieWith({});
    EXPECT_TRUE(isRecording(file));
    EXPECT_EQ(reasonAgainst(file), "");
    EXPECT_EQ(bytesIn(file), file.size() - bare.size());
    EXPECT_GT(bytesIn(file), 0u);
    EXPECT_EQ(cleaned(file), bare);
    EXPECT_EQ(bytesIn(bare), 0u);
}

/// Media before the movie, in which both kinds of tables find it.
Bytes recording(Bytes const& inMovie, Bytes const& inTrack = {})
{
    return join(fileType, largeMedia,
        atom("moov", trackOf(stco({ inMedia, inMedia + 32 }), inTrack),
            trackOf(co64({ inMedia + 8, inMedia + 40 })), inMovie));
}

/// A file with `pieceFor`, which is told where what follows it begins.
Bytes beforeMedia(std::function<Bytes(std::size_t next)> const& pieceFor, Bytes const& media)
{
    return join(pieceFor(pieceFor(0).size()), media);
}

}

TEST(KXMP4LargeAtoms, MovieAfterLargeMediaIsARecording)
{
    Bytes const movie = atom("moov", trackOf(stco({ inMedia })));
    EXPECT_TRUE(isRecording(join(fileType, largeMedia, movie)));
    EXPECT_TRUE(isRecording(join(largeMedia, movie))) << "QuickTime, without a file type";
    EXPECT_TRUE(isRecording(join(fileType, largeAtom("free", zeros(9)), largeMedia, movie)));
    EXPECT_TRUE(isRecording(join(fileType, largeMedia, atom("free", zeros(3)), largeMedia, movie)));
    EXPECT_TRUE(isRecording(join(fileType, movie, largeMedia)));
    EXPECT_FALSE(isRecording(join(atom("ftyp", text("heic"), u32(0)), largeMedia, movie)));
}

TEST(KXMP4LargeAtoms, TagsAndTracksAreReadWhereTheyAreInTheFile)
{
    auto const kindWith = [](Bytes const& atoms) {
        return *KXMP4MovieKind::kindOfData(
            *reader(join(fileType, largeMedia, atom("moov", trackOf(stco({ inMedia })), atoms))));
    };
    EXPECT_FALSE(kindWith({}).isDescribed);
    EXPECT_TRUE(kindWith(userDataWithTags(tagAtom("tvsh", "Show"))).isDescribed);
    Bytes const protectedTrack = atom(
        "trak", atom("mdia", hdlr("soun"), atom("minf", atom("stbl", stsd(soundEntry("enca"))))));
    EXPECT_FALSE(kindWith({}).isProtected);
    EXPECT_TRUE(kindWith(protectedTrack).isProtected);
}

TEST(KXMP4LargeAtoms, MovieItselfMayBeLargeOrReachToTheEnd)
{
    Bytes const track = trackOf(stco({ inMedia }));
    EXPECT_TRUE(isRecording(join(fileType, largeMedia, largeAtom("moov", track))));
    EXPECT_TRUE(isRecording(join(fileType, largeMedia, atomClaiming(0, "moov", track))));
    EXPECT_TRUE(isRecording(join(fileType, atomClaiming(0, "moov", track))));
    EXPECT_FALSE(isRecording(join(fileType, atomClaiming(0, "mdat", atom("moov", track)))));
}

TEST(KXMP4LargeAtoms, CameraDataAfterLargeMediaIsRemoved)
{
    expectRemovedFrom([](Bytes const& data) { return recording(data); }, place);
    expectRemovedFrom([](Bytes const& data) { return recording({}, data); }, place);
    expectRemovedFrom(
        [](Bytes const& data) { return recording(data, data); }, join(place, atom("uuid", xmp)));
    expectRemovedFrom(
        [](Bytes const& data) { return join(recording({}), data); }, atom("uuid", xmp));
}

TEST(KXMP4LargeAtoms, ChunkOffsetsOfMediaAfterTheRemovedFollow)
{
    for (Bytes const& media : { largeMedia, atom("mdat", samples) }) {
        auto const header = static_cast<std::uint32_t>(media.size() - samples.size());
        expectRemovedFrom(
            [&](Bytes const& data) {
                return beforeMedia(
                    [&](std::size_t next) {
                        auto const chunk = static_cast<std::uint32_t>(next) + header;
                        return join(fileType, largeAtom("mdat", samples),
                            atom("moov", trackOf(stco({ inMedia, inMedia + 32 }), data),
                                trackOf(stco({ chunk, chunk + 32 })), data));
                    },
                    media);
            },
            place);
    }
}

TEST(KXMP4LargeAtoms, LargeExtendedTypesAreRemoved)
{
    for (Bytes const& data : { largeAtom("uuid", xmp), atomClaiming(0, "uuid", xmp) })
        expectRemovedFrom([](Bytes const& added) { return join(recording({}), added); }, data);
    expectRemovedFrom(
        [](Bytes const& data) {
            return beforeMedia(
                [&](std::size_t next) {
                    auto const chunk = static_cast<std::uint32_t>(next) + 16;
                    return join(fileType, data, atom("moov", trackOf(stco({ chunk }))));
                },
                largeMedia);
        },
        largeAtom("uuid", xmp));
    Bytes const other = join(recording({}), largeAtom("uuid", zeros(30)));
    EXPECT_EQ(cleaned(other), other);
}

TEST(KXMP4LargeAtoms, LargeMovieKeepsItsLargeSize)
{
    expectRemovedFrom(
        [](Bytes const& data) {
            return join(
                fileType, largeMedia, largeAtom("moov", join(trackOf(stco({ inMedia })), data)));
        },
        place);
    expectRemovedFrom(
        [](Bytes const& data) {
            return join(fileType, largeMedia, largeAtom("moov", trackOf(stco({ inMedia }), data)));
        },
        join(place, atom("uuid", xmp)));
}

TEST(KXMP4LargeAtoms, MovieUpToTheEndGetsItsSize)
{
    Bytes const track = trackOf(stco({ inMedia }));
    Bytes const file = join(fileType, largeMedia, atomClaiming(0, "moov", track, place));
    EXPECT_EQ(reasonAgainst(file), "");
    EXPECT_EQ(cleaned(file), join(fileType, largeMedia, atom("moov", track)));
}

TEST(KXMP4LargeAtoms, OffsetsThatWouldNotBeCorrectedAreAReason)
{
    auto const fileWith = [](auto const& tableFor) {
        return beforeMedia(
            [&](std::size_t next) {
                return join(fileType, largeMedia,
                    atom("moov", trackOf(tableFor(static_cast<std::uint32_t>(next) + 16)), place));
            },
            largeMedia);
    };
    EXPECT_THAT(reasonAgainst(fileWith([](std::uint32_t chunk) {
        return co64({ inMedia, chunk });
    })),
        HasSubstr("64-bit chunk offset table"));
    EXPECT_THAT(reasonAgainst(fileWith([](std::uint32_t chunk) {
        return stco({ inMedia, chunk });
    })),
        HasSubstr("entries before the edit ahead of entries after it"));
    Bytes const fragment = atom("moof",
        atom("traf", atom("tfhd", u32(1), u32(1), u64(recording(place).size())), atom("trun")));
    EXPECT_THAT(reasonAgainst(join(recording(place), fragment)), HasSubstr("movie fragment"));
}

TEST(KXMP4LargeAtoms, LargeAtomWithinTheMovieIsAReason)
{
    for (Bytes const& file :
        { recording(largeAtom("udta", zeros(20))), recording({}, largeAtom("meta", zeros(20))),
            join(fileType, atom("moov", largeAtom("free", {}), trackOf(stco({ 0 })), place)) })
        EXPECT_THAT(reasonAgainst(file), HasSubstr("within the movie has a 64-bit size"));
}

TEST(KXMP4LargeAtoms, SizesThatMakeNoSenseEndTheFile)
{
    Bytes const movie = atom("moov", trackOf(stco({ inMedia })), place);
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    for (std::uint64_t const size : { std::uint64_t { 0 }, std::uint64_t { 8 },
             std::uint64_t { 15 }, std::uint64_t { 10'000 }, most - 8, most }) {
        SCOPED_TRACE(size);
        Bytes const media = join(u32(1), text("mdat"), u64(size), samples);
        for (Bytes const& file : { join(fileType, media, movie),
                 join(fileType, largeMedia, media, movie), join(media, movie) }) {
            EXPECT_FALSE(isRecording(file));
            EXPECT_EQ(cleaned(file), file);
            EXPECT_EQ(bytesIn(file), 0u);
        }
    }
    // What looks like atoms within a header is none: here one of 12 bytes, with the movie after it.
    Bytes const header = join(u32(1), text("mdat"), u64(12), filled(8, 'm'));
    EXPECT_FALSE(isRecording(join(fileType, header, movie)));
    EXPECT_FALSE(isRecording(join(fileType, largeMedia, header, movie)));
    // A header that is cut off ends the file as well.
    EXPECT_TRUE(isRecording(join(recording(place), u32(1), text("moov"), u32(1))));
    for (std::uint64_t const size : { most, std::uint64_t { 10'000 } }) {
        Bytes const large
            = join(u32(1), text("moov"), u64(size), trackOf(stco({ inMedia })), place);
        Bytes const file = join(fileType, largeMedia, large);
        EXPECT_TRUE(isRecording(file)) << "a movie that is cut off";
        EXPECT_EQ(bytesIn(file), place.size());
        Bytes const extended = join(u32(1), text("uuid"), u64(size), xmp);
        EXPECT_THAT(
            reasonAgainst(join(recording({}), extended)), HasSubstr("past the end of the file"));
    }
}

TEST(KXMP4LargeAtoms, AtomsThatReachOutOfTheMovieAreAReason)
{
    Bytes const moov = atom("moov", trackOf(stco({ inMedia })), atomClaiming(40, "udta", zeros(4)));
    Bytes const file = join(fileType, largeMedia, moov, largeMedia);
    EXPECT_NE(reasonAgainst(file), "");
}

TEST(KXMP4LargeAtoms, EveryTruncationIsSurvived)
{
    auto const file = join(fileType, largeAtom("uuid", xmp), largeMedia,
        largeAtom("moov", join(trackOf(stco({ 500 }), place), place)), largeMedia);
    EXPECT_GT(bytesIn(file), 0u);
    for (std::size_t length = 0; length < file.size(); ++length) {
        Bytes const cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        auto const data = std::make_shared<KXMutableData>(cut);
        static_cast<void>(KXMP4CameraData::removeFromData(data));
        EXPECT_EQ(bytesIn(cut), length - data->length());
        EXPECT_EQ(KXMP4MovieKind::kindOfData(*reader(cut)).has_value(), length >= 8);
        static_cast<void>(reasonAgainst(cut));
    }
}

TEST(KXMP4LargeAtoms, SizesThatLieAreSurvived)
{
    LogCapture const log; // Of every damage.
    auto const file = join(recording(place, place), largeAtom("uuid", xmp));
    forEachLyingSize(file, { 0u, 1u, 7u, 16u, 30u, 0x7FFFFFFFu, 0xFFFFFFFFu },
        [](Bytes const& changed, std::size_t at, std::uint32_t size) {
            auto const data = std::make_shared<KXMutableData>(changed);
            bool const isDone = KXMP4CameraData::removeFromData(data);
            if (!isDone) {
                EXPECT_NE(reasonAgainst(changed), "") << at << ": " << size;
            }
            EXPECT_EQ(bytesIn(changed), changed.size() - data->length());
        });
}

TEST(KXMP4LargeAtoms, MillionAtomsAreTooMany)
{
    LogCapture const log;
    std::size_t const count = (std::size_t { 1 } << 20) + 1;
    auto const many
        = [count](Bytes const& one) { return concatenated(std::vector<Bytes>(count, one)); };
    Bytes const track = trackOf(stco({ inMedia }));
    for (Bytes const& file :
        { join(fileType, many(largeAtom("free", {})), atom("moov", track, place)),
            join(fileType, largeMedia, atom("moov", track, many(atom("free")), place)) }) {
        EXPECT_EQ(bytesIn(file), 0u);
        EXPECT_THAT(reasonAgainst(file), HasSubstr("too many atoms"));
    }
    EXPECT_THAT(log.lines(), testing::Each(HasSubstr("too many atoms")));
}

TEST(KXMP4LargeAtoms, EachLookHasItsOwnBudget)
{
    LogCapture const log; // Of the end of the budget.
    auto const data = reader(recording(place));
    while (data->budget().takeNode("no more")) { }
    EXPECT_TRUE(KXMP4MovieKind::kindOfData(*data)->isRecording());
    EXPECT_EQ(KXMP4CameraData::bytesInData(*data), place.size());
}

TEST(KXMP4LargeAtoms, MediaMayBeLongerThan4GiB)
{
    constexpr std::uint64_t length = std::uint64_t { 5 } << 30;
    Bytes const start = join(fileType, u32(1), text("mdat"), u64(length + 16));
    std::uint64_t const end = start.size() + length;
    TemporaryFolder const folder;
    auto const path = folder.write("long.mp4", start);
    std::filesystem::resize_file(path, end); // Takes no room: nothing is written there.
    Bytes const movie = atom("moov", trackOf(co64({ start.size(), end - 8 })), place);
    std::ofstream(path, std::ios::binary | std::ios::app)
        .write(reinterpret_cast<char const*>(movie.data()),
            static_cast<std::streamsize>(movie.size()));

    auto const file = KXAbstractData::abstractDataWithPath(path);
    EXPECT_TRUE(KXMP4MovieKind::kindOfData(*file)->isRecording());
    EXPECT_EQ(KXMP4CameraData::bytesInData(*file), place.size());
    EXPECT_EQ(KXMP4CameraData::reasonAgainstRemovingFromData(*file), std::nullopt);
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_TRUE(KXMP4CameraData::removeFromData(data));
    using Kept = KXMutableData::Kept;
    EXPECT_THAT(data->keptBytes(), ElementsAre(Kept { 0, 0, end + movie.size() - place.size() }));
    std::uint32_t size = 0;
    EXPECT_TRUE(data->readUInt32ToAt(size, end));
    EXPECT_EQ(size, movie.size() - place.size());
}
