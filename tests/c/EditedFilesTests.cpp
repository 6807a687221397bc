// What becomes of files that the C interface writes and replaces.

#include "CMedia.h"
#include "FailingReads.h"

#include "kxmd/kxmd_c.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace files = std::filesystem;

namespace {

class CEditedFiles : public testing::Test {
protected:
    /// Removes the covers; the code of the error.
    static kxmd_error_code removeCovers(char const* path, char const* target)
    {
        kxmd_file* const file = kxmd_file_open(path, nullptr);
        kxmd_error* error = nullptr;
        bool const isDone = kxmd_file_remove_cover(file, target, KXMD_EDIT_SAFELY, &error);
        kxmd_error_code const code = kxmd_error_get_code(error);
        EXPECT_EQ(isDone, code == KXMD_ERROR_NONE) << kxmd_error_get_message(error);
        kxmd_error_free(error);
        kxmd_file_free(file);
        return code;
    }

    static mode_t permissionsOf(std::string const& path)
    {
        struct stat status { };
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_mode & 0777;
    }

    c_media const& media() const { return made.media(); }

    CMedia const made;
    std::string const target { made.pathOf("target") };
    LogCapture const log;
};

}

TEST_F(CEditedFiles, NewOnesAreAsPrivateAsTheirSource)
{
    ::chmod(media().song, 0600);
    EXPECT_EQ(removeCovers(media().song, target.c_str()), KXMD_ERROR_NONE);
    EXPECT_EQ(permissionsOf(target), 0600u);
}

#ifdef KXMD_HAS_CONVERTER

TEST_F(CEditedFiles, PreparedOnesHavePermissionsAndTimeOfTheirSource)
{
    constexpr std::time_t then = 1'000'000'000; // September 2001.
    timespec const times[] { { then, 0 }, { then, 0 } };
    mode_t const mask = ::umask(0);
    ::umask(mask);
    unsigned done = 0;
    for (char const* const path : { media().sound, media().recording }) {
        ::chmod(path, 0640);
        ::utimensat(AT_FDCWD, path, times, 0);
        EXPECT_TRUE(kxmd_prepare_file(
            path, target.c_str(), KXMD_STEP_CONVERT | KXMD_STEP_CLEAN, nullptr, 0, &done, nullptr));
        EXPECT_NE(done, 0u);
        EXPECT_EQ(permissionsOf(target), 0640u & ~mask);
        struct stat status { };
        EXPECT_EQ(::stat(target.c_str(), &status), 0);
        EXPECT_EQ(status.st_mtim.tv_sec, then);
        files::remove(target);
    }
}

#endif

TEST_F(CEditedFiles, ReplacedOnesKeepTheirPermissions)
{
    std::ofstream(target) << "old";
    ::chmod(target.c_str(), 0640);
    EXPECT_EQ(removeCovers(media().song, target.c_str()), KXMD_ERROR_NONE);
    EXPECT_EQ(permissionsOf(target), 0640u);
    ::chmod(media().song, 0640);
    EXPECT_EQ(removeCovers(media().song, nullptr), KXMD_ERROR_NONE);
    EXPECT_EQ(permissionsOf(media().song), 0640u);
    EXPECT_EQ(bytesOfFile(media().song), bytesOfFile(target));
}

TEST_F(CEditedFiles, LinksStayAndWhatTheyLeadToIsReplaced)
{
    std::string const link = made.pathOf("link");
    files::create_symlink("target", link);
    EXPECT_EQ(removeCovers(media().song, link.c_str()), KXMD_ERROR_NONE);
    EXPECT_TRUE(files::is_symlink(link));
    EXPECT_TRUE(files::is_regular_file(files::symlink_status(target)));
    std::string const loop = made.pathOf("loop");
    files::create_symlink("loop", loop);
    EXPECT_EQ(removeCovers(media().song, loop.c_str()), KXMD_ERROR_WRITE);
}

TEST_F(CEditedFiles, WhatSomebodyElseChangedIsLeftAlone)
{
    kxmd_file* const file = kxmd_file_open(media().song, nullptr);
    std::ofstream(media().song, std::ios::app) << "more";
    auto const changed = bytesOfFile(media().song);
    for (bool const isInPlace : { false, true }) {
        kxmd_error* error = nullptr;
        EXPECT_FALSE(kxmd_file_remove_cover(
            file, isInPlace ? nullptr : target.c_str(), KXMD_EDIT_ANYWAY, &error));
        EXPECT_EQ(kxmd_error_get_code(error), KXMD_ERROR_CHANGED);
        kxmd_error_free(error);
    }
    EXPECT_EQ(bytesOfFile(media().song), changed);
    EXPECT_FALSE(files::exists(target));
    kxmd_file_free(file);
}

TEST_F(CEditedFiles, WhatSomebodyChangesMeanwhileIsLeftAlone)
{
    bool isChanged = true;
    for (std::size_t count = 0; isChanged; ++count) {
        ASSERT_LT(count, 100u);
        kxmd_file* const file = kxmd_file_open(media().song, nullptr);
        kxmd_error* error = nullptr;
        {
            InterruptedRead const read(
                count, [this] { std::ofstream(media().song, std::ios::app) << "more"; });
            kxmd_file_remove_cover(file, target.c_str(), KXMD_EDIT_SAFELY, &error);
            isChanged = read.isDone();
        }
        EXPECT_EQ(kxmd_error_get_code(error), isChanged ? KXMD_ERROR_CHANGED : KXMD_ERROR_NONE);
        EXPECT_EQ(files::exists(target), !isChanged) << count;
        kxmd_error_free(error);
        kxmd_file_free(file);
    }
}

TEST_F(CEditedFiles, MemoryIsWrittenToFiles)
{
    auto const song = bytesOfFile(media().song);
    kxmd_file* const file = kxmd_file_open_bytes(song.data(), song.size(), nullptr);
    EXPECT_TRUE(kxmd_file_remove_cover(file, target.c_str(), KXMD_EDIT_SAFELY, nullptr));
    kxmd_bytes* const bytes = kxmd_file_remove_cover_in_memory(file, KXMD_EDIT_SAFELY, nullptr);
    auto const* const first = static_cast<std::uint8_t const*>(kxmd_bytes_get_data(bytes));
    EXPECT_EQ(bytesOfFile(target), build::Bytes(first, first + kxmd_bytes_get_length(bytes)));
    kxmd_bytes_free(bytes);
    kxmd_file_free(file);
}

TEST_F(CEditedFiles, NoneGetsTheNumberOfAStandardFileThatIsClosed)
{
    int const kept = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    ::close(STDIN_FILENO);
    kxmd_file* const file = kxmd_file_open(media().song, nullptr);
    EXPECT_TRUE(kxmd_file_remove_cover(file, target.c_str(), KXMD_EDIT_SAFELY, nullptr));
    EXPECT_LT(::fcntl(STDIN_FILENO, F_GETFD), 0);
    kxmd_file_free(file);
    ::dup2(kept, STDIN_FILENO);
    ::close(kept);
}

TEST_F(CEditedFiles, SeveralThreadsUseHandlesOfTheirOwn)
{
    kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(0, nullptr, nullptr, nullptr);
    auto const use = [&](int number) {
        std::string const own = target + std::to_string(number);
        EXPECT_EQ(removeCovers(media().song, own.c_str()), KXMD_ERROR_NONE);
        kxmd_image* const image = kxmd_thumbnails_make(
            thumbnails, media().picture, 8, 8, KXMD_THUMBNAIL_SQUARE, nullptr);
        EXPECT_EQ(kxmd_image_get_width(image), 8u);
        kxmd_image_free(image);
    };
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back(use, i);
    }
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(bytesOfFile(target + std::to_string(i)), bytesOfFile(target + "0"));
    kxmd_thumbnails_free(thumbnails);
}
