#include "kxmd/mp4/KXMP4CameraData.h"

#include "support/Builders.h"
#include "support/LogCapture.h"
#include "support/LyingSizes.h"

#include <gmock/gmock.h>

using namespace build;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Optional;

namespace {

Bytes const media = atom("mdat", filled(64, 'm'));

/// Where the atoms of a test stand in a movie.
struct Atoms {
    Bytes beforeMovie {};
    Bytes inMovie {};
    Bytes inTrack {};
    Bytes afterMovie {};
};

Bytes movieAtom(Atoms const& atoms, std::uint32_t chunk)
{
    return atom("moov",
        atom("trak", atoms.inTrack,
            atom("mdia", hdlr("vide"),
                atom("minf",
                    atom("stbl", stsd(videoEntry("avc1", 8, 8)), stco({ chunk, chunk + 32 }))))),
        atoms.inMovie);
}

/// A movie whose two chunks are `media`, which follows.
Bytes movie(Atoms const& atoms)
{
    auto const before = join(ftyp(), atoms.beforeMovie);
    auto const chunk = before.size() + movieAtom(atoms, 0).size() + atoms.afterMovie.size() + 8;
    return join(
        before, movieAtom(atoms, static_cast<std::uint32_t>(chunk)), atoms.afterMovie, media);
}

Bytes const bareMovie = movie({});

Bytes cleaned(Bytes const& file)
{
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_TRUE(KXMP4CameraData::removeFromData(data));
    return { data->bytes().begin(), data->bytes().end() };
}

std::uint64_t bytesIn(Bytes const& file) { return KXMP4CameraData::bytesInData(*reader(file)); }

std::string reasonAgainst(Bytes const& file)
{
    return KXMP4CameraData::reasonAgainstRemovingFromData(*reader(file)).value_or("");
}

Bytes extended(std::initializer_list<int> type, std::string_view content)
{
    return atom("uuid", bytes(type), text(content));
}

Bytes const xmp = extended({ 0xBE, 0x7A, 0xCF, 0xCB, 0x97, 0xA9, 0x42, 0xE8, 0x9C, 0x71, 0x99, 0x94,
                               0x91, 0xE3, 0xAF, 0xAC },
    "<x:xmpmeta/>");
Bytes const canon = extended({ 0x85, 0xC0, 0xB6, 0x87, 0x82, 0x0F, 0x11, 0xE0, 0x81, 0x11, 0xF4,
                                 0xCE, 0x46, 0x2B, 0x6A, 0x48 },
    "Canon EOS");
Bytes const sony = join(u32(28), text("uuidUSMT"),
    bytes({ 0x21, 0xD2, 0x4F, 0xCE, 0xBB, 0x88, 0x69, 0x5C, 0xFA, 0xC9, 0xC7, 0x40 }),
    text("MTDT"));
/// ISO/IEC 23001-7 before it was a standard: what a player needs to ask for keys.
Bytes const protection = extended({ 0xD0, 0x8A, 0x4F, 0x18, 0x10, 0xF3, 0x4A, 0x82, 0xB6, 0xC8,
                                      0x32, 0xD8, 0xAB, 0xA1, 0x83, 0xD3 },
    "key");

Bytes keyedMetadata()
{
    auto const key = [](std::string_view name) {
        return atom("mdta", text("com.apple.quicktime."), text(name));
    };
    auto const item = [](std::uint32_t number, std::string_view value) {
        return join(u32(static_cast<std::uint32_t>(24 + value.size())), u32(number),
            dataAtom(1, text(value)));
    };
    return atom("meta", hdlr("mdta"),
        atom("keys", u32(0), u32(3), key("location.ISO6709"), key("make"), key("model")),
        atom("ilst", item(1, "+40.6358-111.8082/"), item(2, "Maker"), item(3, "Model")));
}

/// Latitude and longitude by 3GPP TS 26.244, 8.
Bytes const loci = atom("loci", u32(0), u16(0), u8(0), u8(0), u32(0x00280000), u32(0x00700000),
    u32(0), text("earth"), u8(0), u8(0));
Bytes const quickTimePlace = atom("\xA9xyz", u16(9), u16(0), text("+40.6-111"));

}

TEST(KXMP4CameraData, EachPlaceIsRemovedAndChunkOffsetsFollow)
{
    for (Atoms const& atoms :
        { Atoms { .inMovie = keyedMetadata() }, Atoms { .inMovie = atom("udta", loci) },
            Atoms { .inMovie = atom("udta", quickTimePlace) }, Atoms { .inTrack = keyedMetadata() },
            Atoms { .inTrack = atom("udta", quickTimePlace) }, Atoms { .inMovie = xmp },
            Atoms { .beforeMovie = xmp }, Atoms { .afterMovie = xmp }, Atoms { .inMovie = canon },
            Atoms { .inMovie = sony }, Atoms { .inTrack = sony } }) {
        auto const file = movie(atoms);
        EXPECT_EQ(cleaned(file), bareMovie);
        EXPECT_EQ(bytesIn(file), file.size() - bareMovie.size());
        EXPECT_GT(bytesIn(file), 0u);
        EXPECT_EQ(reasonAgainst(file), "");
    }
}

TEST(KXMP4CameraData, AllPlacesAreRemovedAtOnce)
{
    auto const file = movie({ .beforeMovie = xmp,
        .inMovie = join(keyedMetadata(), atom("udta", loci), atom("udta"), canon, xmp),
        .inTrack = join(atom("udta", quickTimePlace), keyedMetadata(), sony),
        .afterMovie = xmp });
    EXPECT_EQ(cleaned(file), bareMovie);
    EXPECT_EQ(bytesIn(file), file.size() - bareMovie.size());
    EXPECT_EQ(reasonAgainst(file), "");
}

TEST(KXMP4CameraData, WithoutAnyNothingIsChanged)
{
    for (Bytes const& file : { bareMovie, Bytes(), jpeg(8, 8, 100) }) {
        EXPECT_EQ(cleaned(file), file);
        EXPECT_EQ(bytesIn(file), 0u);
        EXPECT_EQ(reasonAgainst(file), "");
    }
    EXPECT_FALSE(KXMP4CameraData::removeFromData(nullptr));
}

TEST(KXMP4CameraData, WhatElseLooksAlikeStays)
{
    auto const file = movie({ .beforeMovie = protection,
        .inMovie = join(protection, atom("uuid"), atom("uuid", zeros(15))),
        .afterMovie = join(keyedMetadata(), atom("udta", loci), protection) });
    EXPECT_EQ(cleaned(file), file);
    EXPECT_EQ(bytesIn(file), 0u);
}

TEST(KXMP4CameraData, MediaBeforeTheMovieStaysWhereItIs)
{
    auto const file = join(ftyp(), media,
        movieAtom({ .inMovie = keyedMetadata() }, static_cast<std::uint32_t>(ftyp().size() + 8)));
    EXPECT_EQ(cleaned(file),
        join(ftyp(), media, movieAtom({}, static_cast<std::uint32_t>(ftyp().size() + 8))));
    EXPECT_EQ(reasonAgainst(file), "");
}

TEST(KXMP4CameraData, OffsetsThatWouldNotBeCorrectedAreAReason)
{
    auto const file = join(ftyp(),
        atom("moov",
            atom("trak",
                atom("mdia", hdlr("vide"),
                    atom("minf",
                        atom("stbl", stsd(videoEntry("avc1", 8, 8)),
                            atom("co64", u32(0), u32(1), u64(400)))))),
            keyedMetadata()),
        atom("mdat", zeros(400)));
    EXPECT_THAT(reasonAgainst(file), HasSubstr("64-bit chunk offset table"));
}

TEST(KXMP4CameraData, AtomThatCannotBeRemovedKeepsNoOther)
{
    auto const file = join(
        ftyp(), atomClaiming(500, "moov", keyedMetadata(), atomClaiming(400, "udta", zeros(4))));
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_FALSE(KXMP4CameraData::removeFromData(data));
    EXPECT_EQ(data->length(), file.size() - keyedMetadata().size());
    EXPECT_EQ(bytesIn(file), keyedMetadata().size());
    EXPECT_THAT(reasonAgainst(file), HasSubstr("past the end of the file"));
}

TEST(KXMP4CameraData, ManyAtomsAreAllRemovedOrNone)
{
    auto const movieWith = [](std::size_t count) {
        return movie(
            { .inMovie = concatenated(std::vector<Bytes>(count, atom("udta", zeros(1)))) });
    };
    EXPECT_EQ(cleaned(movieWith(1000)), bareMovie);
    LogCapture const log;
    auto const full = movieWith(100'000);
    auto const data = std::make_shared<KXMutableData>(full);
    EXPECT_FALSE(KXMP4CameraData::removeFromData(data));
    EXPECT_EQ(data->length(), full.size());
    EXPECT_THAT(
        log.lines(), ElementsAre("Metadata: KXMP4CameraData->too much of it, none is removed"));
    EXPECT_EQ(bytesIn(full), 0u);
    EXPECT_THAT(reasonAgainst(full), HasSubstr("too much metadata"));
}

TEST(KXMP4CameraData, EveryTruncationIsSurvived)
{
    auto const file
        = movie({ .beforeMovie = xmp, .inMovie = join(keyedMetadata(), canon), .inTrack = sony });
    for (std::size_t length = 0; length < file.size(); ++length) {
        Bytes const cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        auto const data = std::make_shared<KXMutableData>(cut);
        static_cast<void>(KXMP4CameraData::removeFromData(data));
        EXPECT_EQ(bytesIn(cut), length - data->length());
        static_cast<void>(reasonAgainst(cut));
    }
}

TEST(KXMP4CameraData, SizesThatLieAreSurvived)
{
    LogCapture const log; // Of every damage.
    auto const file = movie({ .beforeMovie = xmp, .inMovie = atom("udta", loci), .inTrack = sony });
    forEachLyingSize(file, { 0u, 1u, 7u, 30u, 0x7FFFFFFFu, 0xFFFFFFFFu },
        [](Bytes const& changed, auto, auto) { EXPECT_LE(bytesIn(changed), changed.size()); });
}
