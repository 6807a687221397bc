#include "kxmd/mp4/KXMP4MovieKind.h"

#include "support/Builders.h"
#include "support/LogCapture.h"
#include "support/LyingSizes.h"

#include <gtest/gtest.h>

using namespace build;

namespace {

Bytes fileType(std::string_view brand) { return atom("ftyp", text(brand), u32(0)); }

Bytes trackHeader(std::uint32_t id, bool isWide = false)
{
    return isWide ? atom("tkhd", u8(1), zeros(3), zeros(16), u32(id), zeros(72))
                  : atom("tkhd", u32(0), zeros(8), u32(id), zeros(60));
}

Bytes sampleSizes(std::string_view type, std::uint32_t count)
{
    return atom(type, u32(0), u32(0), u32(count));
}

/// A track with a handler, its sample entry, how many samples it has, and other atoms.
Bytes trackOf(std::string_view handler, Bytes const& entry, std::uint32_t samples = 100,
    Bytes const& others = {}, std::string_view sizesType = "stsz")
{
    return atom("trak", others,
        atom("mdia", hdlr(handler),
            atom("minf", atom("stbl", stsd(entry), sampleSizes(sizesType, samples), stco({ 0 })))));
}

Bytes const sound = trackOf("soun", soundEntry("mp4a"));
Bytes const pictures = trackOf("vide", videoEntry("avc1", 16, 16));

Bytes movieWith(Bytes const& atoms, std::string_view brand = "isom")
{
    return join(fileType(brand), atom("moov", atoms), atom("mdat", zeros(8)));
}

std::optional<KXMP4MovieKind> kindOf(Bytes const& file)
{
    return KXMP4MovieKind::kindOfData(*reader(file));
}

/// The kind of a movie with sound and pictures and these atoms.
KXMP4MovieKind kindWith(Bytes const& atoms)
{
    return kindOf(movieWith(join(pictures, sound, atoms))).value_or(KXMP4MovieKind());
}

}

TEST(KXMP4MovieKind, MoviesBeginWithAFileTypeOrHaveAMovieAtom)
{
    EXPECT_TRUE(kindOf(movieWith({})));
    EXPECT_TRUE(kindOf(fileType("qt  ")));
    Bytes const movie = atom("moov", pictures);
    EXPECT_TRUE(kindOf(movie));
    for (std::string_view const first : { "mdat", "wide", "free", "skip", "pnot" }) {
        SCOPED_TRACE(first);
        EXPECT_FALSE(kindOf(atom(first, zeros(8))));
        auto const kind = kindOf(join(atom(first, zeros(8)), movie));
        ASSERT_TRUE(kind);
        EXPECT_TRUE(kind->hasMovingPictures);
    }
    EXPECT_FALSE(kindOf(join(atom("junk"), movie)));
}

TEST(KXMP4MovieKind, OtherFilesHaveNone)
{
    for (Bytes const& file : { Bytes(), text("moov"), jpeg(8, 8, 100), text("ID3\3\0\0\0\0\0\0"),
             fileType("heic"), fileType("avif"), join(fileType("crx "), atom("moov", pictures)) })
        EXPECT_FALSE(kindOf(file));
}

TEST(KXMP4MovieKind, ReaderIsLeftAtItsStart)
{
    auto const data = reader(movieWith(pictures));
    data->setOffset(3);
    EXPECT_TRUE(KXMP4MovieKind::kindOfData(*data));
    EXPECT_EQ(data->offset(), 0u);
}

TEST(KXMP4MovieKind, PlainMovieIsARecording)
{
    auto const kind = kindOf(movieWith(join(sound, pictures)));
    ASSERT_TRUE(kind);
    EXPECT_TRUE(kind->hasMovingPictures);
    EXPECT_FALSE(kind->isMusic);
    EXPECT_FALSE(kind->isProtected);
    EXPECT_FALSE(kind->isDescribed);
    EXPECT_TRUE(kind->isRecording());
}

TEST(KXMP4MovieKind, SoundAloneIsMusic)
{
    auto const kind = kindOf(movieWith(sound));
    EXPECT_TRUE(kind->isMusic);
    EXPECT_FALSE(kind->hasMovingPictures);
    EXPECT_FALSE(kind->isRecording());
}

TEST(KXMP4MovieKind, AudioFileWithMovingPicturesIsMusic)
{
    for (std::string_view const brand : { "M4A ", "M4B ", "M4P " }) {
        auto const kind = kindOf(movieWith(join(sound, pictures), brand));
        EXPECT_TRUE(kind->isMusic);
        EXPECT_TRUE(kind->hasMovingPictures);
        EXPECT_FALSE(kind->isRecording());
    }
    EXPECT_FALSE(kindOf(movieWith(join(sound, pictures), "M4V "))->isMusic);
    EXPECT_FALSE(kindOf(movieWith(pictures, "M4A "))->isMusic) << "there is no sound";
}

TEST(KXMP4MovieKind, NothingToSeeOrHearIsNeither)
{
    auto const kind = kindOf(movieWith(trackOf("text", atom("tx3g"))));
    EXPECT_FALSE(kind->isMusic);
    EXPECT_FALSE(kind->hasMovingPictures);
    EXPECT_FALSE(kind->isRecording());
}

TEST(KXMP4MovieKind, OneStillPictureDoesNotMove)
{
    for (std::string_view const sizes : { "stsz", "stz2" }) {
        for (std::string_view const coding : { "jpeg", "png " }) {
            auto const still = trackOf("vide", videoEntry(coding, 8, 8), 1, {}, sizes);
            EXPECT_FALSE(kindOf(movieWith(join(sound, still)))->hasMovingPictures);
            EXPECT_TRUE(kindOf(movieWith(join(sound, still)))->isMusic);
            EXPECT_TRUE(kindOf(movieWith(join(still, pictures)))->hasMovingPictures);
        }
    }
    // Old cameras write many JPEG pictures; a movie of another coding may have one frame, or none
    // yet when its media comes in fragments.
    EXPECT_TRUE(kindOf(movieWith(trackOf("vide", videoEntry("jpeg", 8, 8), 2)))->hasMovingPictures);
    EXPECT_TRUE(kindOf(movieWith(trackOf("vide", videoEntry("avc1", 8, 8), 1)))->hasMovingPictures);
    EXPECT_TRUE(kindOf(movieWith(trackOf("vide", videoEntry("avc1", 8, 8), 0)))->hasMovingPictures);
}

TEST(KXMP4MovieKind, StillPictureMayBeDeclaredByItsDescriptor)
{
    auto const kindOfType = [](std::uint32_t objectType) {
        auto const entry = videoEntry("mp4v", 8, 8, esds(objectType, 0, 0, {}));
        return kindOf(movieWith(trackOf("vide", entry, 1)))->hasMovingPictures;
    };
    EXPECT_FALSE(kindOfType(0x6C));
    EXPECT_FALSE(kindOfType(0x6D));
    EXPECT_TRUE(kindOfType(0x20));
}

TEST(KXMP4MovieKind, PicturesOfChaptersDoNotMove)
{
    for (bool const isWide : { false, true }) {
        auto const chapters = trackOf("vide", videoEntry("jpeg", 8, 8), 12, trackHeader(7, isWide));
        auto const soundNaming = [](std::string_view reference, std::uint32_t id) {
            return trackOf("soun", soundEntry("mp4a"), 9,
                join(trackHeader(1),
                    atom("tref", atom("sync", u32(3)), atom(reference, u32(2), u32(id)))));
        };
        auto const kind = kindOf(movieWith(join(soundNaming("chap", 7), chapters)));
        EXPECT_FALSE(kind->hasMovingPictures);
        EXPECT_TRUE(kind->isDescribed);
        EXPECT_TRUE(kind->isMusic);
        EXPECT_TRUE(kindOf(movieWith(join(soundNaming("chap", 8), chapters)))->hasMovingPictures);
        EXPECT_TRUE(kindOf(movieWith(join(soundNaming("cdsc", 7), chapters)))->hasMovingPictures);
        EXPECT_FALSE(kindOf(movieWith(join(soundNaming("cdsc", 7), chapters)))->isDescribed);
    }
}

TEST(KXMP4MovieKind, EncryptedTracksAreProtected)
{
    for (std::string_view const type : { "enca", "drms", "aavd" })
        EXPECT_TRUE(kindOf(movieWith(trackOf("soun", soundEntry(type))))->isProtected) << type;
    for (std::string_view const type : { "encv", "drmi" })
        EXPECT_TRUE(kindOf(movieWith(trackOf("vide", videoEntry(type, 8, 8))))->isProtected)
            << type;
    for (std::string_view const type : { "drmt", "enct" })
        EXPECT_TRUE(kindOf(movieWith(trackOf("text", atom(type))))->isProtected) << type;
    EXPECT_FALSE(kindOf(movieWith(join(sound, pictures)))->isProtected);
    auto const second = trackOf("soun", join(soundEntry("mp4a"), soundEntry("enca")));
    EXPECT_TRUE(kindOf(movieWith(join(sound, second)))->isProtected);
    EXPECT_FALSE(kindWith(atom("udta", atom("encv"))).isProtected);
}

TEST(KXMP4MovieKind, TimedMetadataIsMeasured)
{
    auto const measurements = trackOf("meta", atom("gpmd"));
    auto const kind = kindWith(measurements);
    EXPECT_TRUE(kind.hasMeasurements);
    EXPECT_TRUE(kind.isRecording());
    EXPECT_TRUE(kindOf(movieWith(join(measurements, pictures)))->hasMeasurements);
    EXPECT_FALSE(kindWith(trackOf("tmcd", atom("tmcd"))).hasMeasurements);
    EXPECT_FALSE(kindWith(atom("meta", u32(0), hdlr("meta"))).hasMeasurements);
}

TEST(KXMP4MovieKind, EveryTruncationIsSurvived)
{
    auto const file = movieWith(join(pictures, sound,
        trackOf("vide", videoEntry("jpeg", 8, 8), 1,
            join(trackHeader(1), atom("tref", atom("chap", u32(2))))),
        userDataWithTags(tagAtom("tvsh", "Show"))));
    for (std::size_t length = 0; length <= file.size(); ++length) {
        Bytes const cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(kindOf(cut).has_value(), length >= 8);
    }
}

TEST(KXMP4MovieKind, SizesThatLieAreSurvived)
{
    LogCapture const log; // Of every damage.
    auto const file = movieWith(join(trackHeader(1),
        trackOf("vide", videoEntry("jpeg", 8, 8), 1, atom("tref", atom("chap", u32(2)))),
        userDataWithTags(tagAtom("tvsh", "Show")), atom("udta", atom("\xA9nam", u16(1), u16(0)))));
    forEachLyingSize(file, { 0u, 1u, 7u, 0x7FFFFFFFu, 0xFFFFFFFFu },
        [](Bytes const& changed, auto, auto) { static_cast<void>(kindOf(changed)); });
}

TEST(KXMP4MovieKind, MillionsOfReferencesAndEntriesEndInTime)
{
    Bytes const many = zeros(std::size_t { 8 } << 20);
    auto const track = trackOf("vide", many, 1, atom("tref", atom("chap", many)));
    auto const kind = kindOf(movieWith(concatenated(std::vector<Bytes>(4, track))));
    ASSERT_TRUE(kind);
    EXPECT_TRUE(kind->hasMovingPictures);
}
