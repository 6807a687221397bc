// What the C interface says of files that the system refuses to read: on no account that they are
// no media.

#include "CMedia.h"
#include "FailingReads.h"

#include "kxmd/kxmd_c.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>

namespace {

class CReadErrors : public testing::Test {
protected:
    /// Whether `edit` fails for that reason, and writes nothing, whichever read is the first that
    /// fails.
    void failEachReadOf(std::function<bool(kxmd_error** error)> const& edit)
    {
        bool haveFailed = true;
        for (std::size_t count = 0; haveFailed; ++count) {
            ASSERT_LT(count, 1000u);
            SCOPED_TRACE(count);
            kxmd_error* error = nullptr;
            std::filesystem::remove(target);
            bool isDone;
            {
                FailingReads const failing(count);
                isDone = edit(&error);
                haveFailed = failing.haveFailed();
            }
            EXPECT_EQ(isDone, !haveFailed);
            EXPECT_EQ(std::filesystem::exists(target), isDone);
            if (haveFailed) {
                EXPECT_EQ(kxmd_error_get_code(error), KXMD_ERROR_READ);
                EXPECT_EQ(kxmd_error_get_errno(error), EIO);
                EXPECT_STREQ(kxmd_error_get_message(error), "cannot be read: Input/output error");
            }
            kxmd_error_free(error);
            if (HasFailure())
                return;
        }
    }

    CMedia const files;
    c_media const& media { files.media() };
    std::string const target { files.pathOf("target") };
    LogCapture const log;
};

}

TEST_F(CReadErrors, AHandleTellsThem)
{
    FailingReads const failing(0);
    kxmd_file* const file = kxmd_file_open(media.song, nullptr);
    ASSERT_TRUE(file);
    EXPECT_EQ(kxmd_file_get_read_error(file), EIO);
    EXPECT_EQ(kxmd_file_get_type(file), KXMD_TYPE_UNKNOWN);
    EXPECT_GT(kxmd_file_get_size(file), 0u);
    for (bool const isPreview : { false, true }) {
        kxmd_error* error = nullptr;
        EXPECT_FALSE(isPreview ? kxmd_file_extract_preview(file, &error)
                               : kxmd_file_extract_cover(file, &error));
        EXPECT_EQ(kxmd_error_get_code(error), KXMD_ERROR_READ);
        kxmd_error_free(error);
    }
    kxmd_file_free(file);
}

TEST_F(CReadErrors, ATypeIsNotToldByHalf)
{
    FailingReads const failing(0);
    kxmd_error* error = nullptr;
    EXPECT_EQ(kxmd_type_of_path(media.song, &error), KXMD_TYPE_UNKNOWN);
    EXPECT_EQ(kxmd_error_get_code(error), KXMD_ERROR_READ);
    EXPECT_EQ(kxmd_error_get_errno(error), EIO);
    kxmd_error_free(error);
}

TEST_F(CReadErrors, EditsWriteNothing)
{
    for (char const* const path : { media.song, media.tagged }) {
        kxmd_file* const file = kxmd_file_open(path, nullptr);
        failEachReadOf([&](kxmd_error** error) {
            return kxmd_file_insert_cover(
                file, media.jpeg, media.jpeg_length, target.c_str(), KXMD_EDIT_SAFELY, error);
        });
        failEachReadOf([&](kxmd_error** error) {
            return kxmd_file_remove_cover(file, target.c_str(), KXMD_EDIT_ANYWAY, error);
        });
        kxmd_file_free(file);
    }
}

TEST_F(CReadErrors, EditsInMemoryGiveNothing)
{
    kxmd_file* const file = kxmd_file_open(media.song, nullptr);
    failEachReadOf([&](kxmd_error** error) {
        kxmd_bytes* const bytes = kxmd_file_remove_cover_in_memory(file, KXMD_EDIT_ANYWAY, error);
        if (bytes) // As an edit of files would have.
            std::ofstream(target) << "done";
        kxmd_bytes_free(bytes);
        return bytes != nullptr;
    });
    kxmd_file_free(file);
}

TEST_F(CReadErrors, PreparationWritesNothing)
{
    failEachReadOf([&](kxmd_error** error) {
        return kxmd_prepare_file(media.recording, target.c_str(),
            KXMD_STEP_CLEAN | KXMD_STEP_CLEAN_CAMERA_DATA, nullptr, 0, nullptr, error);
    });
    failEachReadOf([&](kxmd_error** error) {
        return kxmd_prepare_file(media.bare, target.c_str(), KXMD_STEP_INSERT_COVER, media.jpeg,
            media.jpeg_length, nullptr, error);
    });
}
