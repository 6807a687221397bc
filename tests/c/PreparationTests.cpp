// Which steps of a preparation suit a file, for the C interface.

#include "CMedia.h"
#include "FailingReads.h"

#include "kxmd/kxmd_c.h"
#include "support/EditableMovies.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

using namespace build;

namespace {

constexpr unsigned allSteps
    = KXMD_STEP_CONVERT | KXMD_STEP_CLEAN | KXMD_STEP_CLEAN_CAMERA_DATA | KXMD_STEP_INSERT_COVER;

/// A track whose samples are of that kind. A hundred of them.
Bytes trackOf(std::string_view handler, Bytes const& entry, std::uint32_t media)
{
    Bytes const sizes = atom("stsz", u32(0), u32(0), u32(100));
    return atom("trak",
        atom("mdia", hdlr(handler),
            atom("minf", atom("stbl", stsd(entry), sizes, stco({ media })))));
}

/// A QuickTime movie of tracks and other atoms, for which it gives the position of the media.
template <class MakeAtoms> Bytes movieOf(MakeAtoms makeAtoms)
{
    Bytes const fileType = atom("ftyp", text("qt  "), u32(0));
    auto const position
        = static_cast<std::uint32_t>(fileType.size() + atom("moov", makeAtoms(0)).size() + 8);
    return join(fileType, atom("moov", makeAtoms(position)), atom("mdat", filled(64, 'm')));
}

Bytes const pictures = videoEntry("avc1", 320, 240, avcC(77, 30));

class CPreparation : public testing::Test {
protected:
    /// The steps that suit a file of these bytes; it can be prepared.
    unsigned stepsFor(Bytes const& bytes)
    {
        std::string const path = folder.write("source", bytes);
        unsigned done = 0;
        kxmd_error* error = nullptr;
        EXPECT_TRUE(
            kxmd_prepare_file(path.c_str(), target.c_str(), allSteps, nullptr, 0, &done, &error))
            << kxmd_error_get_message(error);
        kxmd_error_free(error);
        return done;
    }

    TemporaryFolder const folder;
    std::string const target { (folder.path() / "target").string() };
    LogCapture const log;
};

}

TEST_F(CPreparation, FilmsKeepTheirSound)
{
    EXPECT_EQ(stepsFor(movieOf([](std::uint32_t media) {
        return join(trackOf("vide", pictures, media), trackOf("soun", soundEntry("alac"), media),
            userDataWithTags(tagAtom("\xA9nam", "A Film")));
    })),
        0u);
}

TEST_F(CPreparation, FilmThatCannotBeReadIsNotTakenForMusic)
{
    // So far apart that each part is read on its own.
    Bytes const gap = atom("free", zeros(100'000));
    Bytes const film = movieOf([&](std::uint32_t media) {
        return join(gap, trackOf("soun", soundEntry("alac"), media), gap,
            trackOf("vide", pictures, media), gap);
    });
    std::string const path = folder.write("source", film);
    bool haveFailed = true;
    for (std::size_t count = 0; haveFailed; ++count) {
        ASSERT_LT(count, 1000u);
        kxmd_error* error = nullptr;
        {
            FailingReads const failing(count);
            kxmd_prepare_file(
                path.c_str(), target.c_str(), KXMD_STEP_CONVERT, nullptr, 0, nullptr, &error);
            haveFailed = failing.haveFailed();
        }
        EXPECT_EQ(kxmd_error_get_code(error), haveFailed ? KXMD_ERROR_READ : KXMD_ERROR_NONE)
            << count;
        EXPECT_EQ(std::filesystem::exists(target), !haveFailed) << count;
        kxmd_error_free(error);
    }
}

TEST_F(CPreparation, ProtectedMusicIsNotConverted)
{
    Bytes const entries = join(soundEntry("alac"), soundEntry("enca"));
    EXPECT_EQ(
        stepsFor(movieOf([&](std::uint32_t media) { return trackOf("soun", entries, media); })),
        0u);
}

TEST_F(CPreparation, StepsThatFindNothingLeftAreNotMade)
{
    EXPECT_EQ(stepsFor(movieOf([](std::uint32_t media) {
        return join(
            trackOf("vide", pictures, media), atom("udta", atom("\xA9mak", text("Camera"))));
    })),
        unsigned { KXMD_STEP_CLEAN });
    EXPECT_EQ(
        stepsFor(movieOf([](std::uint32_t media) { return trackOf("vide", pictures, media); })),
        0u);
}

TEST_F(CPreparation, OtherFilesAreCopied)
{
    for (Bytes const& bytes : { Bytes(), text("Dear diary"), jpeg(8, 8, 100) }) {
        EXPECT_EQ(stepsFor(bytes), 0u);
        EXPECT_EQ(bytesOfFile(target), bytes);
    }
}

#ifdef KXMD_HAS_CONVERTER

TEST_F(CPreparation, SourceThatChangesBeforeItIsConvertedIsNotWritten)
{
    CMedia const made;
    char const* const path = made.media().sound;
    kxmd_error* error = nullptr;
    {
        InterruptedRead const read(0, [path] { std::ofstream(path, std::ios::app) << "more"; });
        EXPECT_FALSE(kxmd_prepare_file(
            path, target.c_str(), KXMD_STEP_CONVERT, nullptr, 0, nullptr, &error));
    }
    EXPECT_EQ(kxmd_error_get_code(error), KXMD_ERROR_CHANGED);
    EXPECT_FALSE(std::filesystem::exists(target));
    kxmd_error_free(error);
}

#endif

namespace {

/// What becomes of music without a place for a cover that is given one.
kxmd_error_code codeOfInsertion(Bytes const& bytes, unsigned flags)
{
    Bytes const cover = jpeg(300, 300, 1000);
    kxmd_file* const file = kxmd_file_open_bytes(bytes.data(), bytes.size(), nullptr);
    kxmd_error* error = nullptr;
    kxmd_bytes* const edited
        = kxmd_file_insert_cover_in_memory(file, cover.data(), cover.size(), flags, &error);
    kxmd_error_code const code = kxmd_error_get_code(error);
    if (edited) {
        kxmd_file* const again = kxmd_file_open_bytes(
            kxmd_bytes_get_data(edited), kxmd_bytes_get_length(edited), nullptr);
        EXPECT_EQ(kxmd_file_get_cover_size(again), cover.size() + 24);
        kxmd_file_free(again);
    }
    kxmd_bytes_free(edited);
    kxmd_error_free(error);
    kxmd_file_free(file);
    return code;
}

}

TEST(CCoverPlace, IsMadeWhereMusicSurvivesIt)
{
    using namespace editable;
    Bytes const song = moovFirst(
        [](std::uint32_t media) { return atom("moov", trackWithTables(stco({ media }))); });
    EXPECT_EQ(codeOfInsertion(song, KXMD_EDIT_SAFELY), KXMD_ERROR_NOT_POSSIBLE);
    EXPECT_EQ(codeOfInsertion(song, KXMD_EDIT_MAKE_PLACE), KXMD_ERROR_NONE);
    Bytes const fragile = moovFirst([](std::uint32_t media) {
        return atom("moov", trackWithTables(stco({ media })), trackWithTables(co64({ media + 8 })));
    });
    EXPECT_EQ(codeOfInsertion(fragile, KXMD_EDIT_MAKE_PLACE), KXMD_ERROR_NOT_SAFE);
    EXPECT_EQ(codeOfInsertion(fragile, KXMD_EDIT_MAKE_PLACE | KXMD_EDIT_ANYWAY), KXMD_ERROR_NONE);
}
