// What the C interface does when memory runs out: it fails with an error, or does without, and
// keeps neither memory nor files.

#include "CMedia.h"

#include "kxmd/kxmd_c.h"
#include "kxmd/platform/KXPlatform.h"
#include "support/Allocations.h"
#include "support/Fakes.h"
#include "support/LogCapture.h"
#include "support/OpenFiles.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

/// Does something that reports failure as a function of C does; whether it succeeded.
using Use = std::function<bool(kxmd_error** error)>;

/// Memory that was allocated and not given back, by this thread.
std::uint64_t keptAllocations()
{
    auto const now = Allocations::soFar();
    return now.count - now.freed;
}

class COutOfMemory : public testing::Test {
protected:
    void SetUp() override { folderNames = namesInFolder(); }

    /// Lets each allocation of `use` fail, one run after the other.
    void failEachAllocationOf(Use const& use)
    {
        ASSERT_TRUE(use(nullptr)); // What is made once for the process is made now.
        bool hasFailed = true;
        std::uint64_t failures = 0;
        for (std::uint64_t count = 0; hasFailed; ++count) {
            ASSERT_LT(count, 5000u);
            SCOPED_TRACE(count);
            std::uint64_t const keptBefore = keptAllocations();
            hasFailed = failAllocation(count, use, failures);
            std::uint64_t const keptOnce = keptAllocations();
            if (keptOnce != keptBefore) { // For the process, or for each time?
                failAllocation(count, use, failures);
                EXPECT_EQ(keptAllocations(), keptOnce);
            }
            if (HasFailure())
                return;
        }
        EXPECT_GT(failures, 0u);
    }

    std::set<std::string> namesInFolder() const
    {
        std::set<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator(media.folder))
            names.insert(entry.path().filename());
        return names;
    }

    CMedia const files;
    c_media const& media { files.media() };
    std::string const target { files.pathOf("target") };
    std::set<std::string> folderNames;

private:
    /// Lets one fail; whether there was one.
    bool failAllocation(std::uint64_t count, Use const& use, std::uint64_t& failures)
    {
        std::size_t const filesBefore = countOfOpenFiles();
        kxmd_error* error = nullptr;
        bool isDone, hasFailed;
        {
            FailingAllocation const failing(count);
            isDone = use(&error);
            hasFailed = failing.hasFailed();
        }
        failures += !isDone;
        EXPECT_EQ(isDone, error == nullptr);
        if (!isDone) {
            EXPECT_TRUE(hasFailed);
            EXPECT_NE(kxmd_error_get_code(error), KXMD_ERROR_INTERNAL)
                << kxmd_error_get_message(error);
            EXPECT_STRNE(kxmd_error_get_message(error), "");
        }
        kxmd_error_free(error);
        EXPECT_EQ(countOfOpenFiles(), filesBefore);
        return hasFailed;
    }

    LogCapture const log;
};

bool isFreed(kxmd_bytes* bytes)
{
    kxmd_bytes_free(bytes);
    return bytes;
}

bool isFreed(kxmd_image* image)
{
    kxmd_image_free(image);
    return image;
}

/// What `use` does with the file at `path`, which is opened for it.
template <class UseFile> bool usesFile(char const* path, kxmd_error** error, UseFile useFile)
{
    kxmd_file* const file = kxmd_file_open(path, error);
    bool const isDone = file && useFile(file);
    kxmd_file_free(file);
    return isDone;
}

}

TEST_F(COutOfMemory, Files)
{
    for (char const* const path : { media.song, media.tagged, media.recording, media.photo }) {
        SCOPED_TRACE(path);
        failEachAllocationOf([path](kxmd_error** error) {
            return usesFile(path, error, [](kxmd_file*) { return true; });
        });
    }
    failEachAllocationOf([&](kxmd_error** error) {
        kxmd_file* const file = kxmd_file_open_bytes(media.jpeg, media.jpeg_length, error);
        kxmd_file_free(file);
        return file != nullptr;
    });
    failEachAllocationOf(
        [&](kxmd_error** error) { return kxmd_type_of_path(media.song, error) == KXMD_TYPE_MP4; });
}

TEST_F(COutOfMemory, LogHandlers)
{
    int lines = 0;
    auto const count
        = [](char const*, char const*, void* counted) { ++*static_cast<int*>(counted); };
    failEachAllocationOf(
        [&](kxmd_error** error) { return kxmd_set_log_handler(count, &lines, error); });
}

TEST_F(COutOfMemory, Pictures)
{
    failEachAllocationOf([&](kxmd_error** error) {
        return isFreed(kxmd_image_decode(media.png, media.png_length, error));
    });
    kxmd_image* const image = kxmd_image_decode(media.png, media.png_length, nullptr);
    failEachAllocationOf([image](kxmd_error** error) {
        return isFreed(kxmd_image_encode(image, KXMD_PICTURE_PNG, error));
    });
    kxmd_image_free(image);
    failEachAllocationOf([&](kxmd_error** error) {
        return usesFile(media.song, error,
            [error](kxmd_file* file) { return isFreed(kxmd_file_decode_cover(file, error)); });
    });
    failEachAllocationOf([&](kxmd_error** error) {
        return usesFile(media.song, error,
            [error](kxmd_file* file) { return isFreed(kxmd_file_extract_cover(file, error)); });
    });
    failEachAllocationOf([&](kxmd_error** error) {
        return usesFile(media.photo, error,
            [error](kxmd_file* file) { return isFreed(kxmd_file_extract_preview(file, error)); });
    });
}

TEST_F(COutOfMemory, EditsInMemory)
{
    for (char const* const path : { media.song, media.tagged }) {
        failEachAllocationOf([&](kxmd_error** error) {
            return usesFile(path, error, [&](kxmd_file* file) {
                return isFreed(kxmd_file_insert_cover_in_memory(
                    file, media.jpeg, media.jpeg_length, KXMD_EDIT_SAFELY, error));
            });
        });
        failEachAllocationOf([&](kxmd_error** error) {
            return usesFile(path, error, [&](kxmd_file* file) {
                return isFreed(kxmd_file_remove_cover_in_memory(file, KXMD_EDIT_SAFELY, error));
            });
        });
    }
    failEachAllocationOf([&](kxmd_error** error) {
        return usesFile(media.song, error, [&](kxmd_file* file) {
            return kxmd_file_check_insertion(
                       file, media.jpeg, media.jpeg_length, KXMD_EDIT_MAKE_PLACE, error)
                && kxmd_file_check_removal(file, error);
        });
    });
}

TEST_F(COutOfMemory, EditsOfFilesWriteAllOrNothing)
{
    auto const before = bytesOfFile(media.song);
    auto const insert = [&](kxmd_error** error) {
        ::unlink(target.c_str());
        bool const isDone = usesFile(media.bare, error, [&](kxmd_file* file) {
            return kxmd_file_insert_cover(
                file, media.jpeg, media.jpeg_length, target.c_str(), KXMD_EDIT_MAKE_PLACE, error);
        });
        return isDone;
    };
    failEachAllocationOf(insert);
    failEachAllocationOf([&](kxmd_error** error) {
        return usesFile(media.song, error, [&](kxmd_file* file) {
            return kxmd_file_remove_cover(file, target.c_str(), KXMD_EDIT_SAFELY, error);
        });
    });
    std::filesystem::remove(target);
    EXPECT_EQ(namesInFolder(), folderNames);
    EXPECT_EQ(bytesOfFile(media.song), before);
}

TEST_F(COutOfMemory, Thumbnails)
{
    failEachAllocationOf([&](kxmd_error** error) {
        kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(0, nullptr, nullptr, error);
        bool const isDone = thumbnails
            && isFreed(kxmd_thumbnails_make(
                thumbnails, media.picture, 9, 9, KXMD_THUMBNAIL_SQUARE, error));
        kxmd_thumbnails_free(thumbnails);
        return isDone;
    });
}

TEST_F(COutOfMemory, Preparation)
{
    failEachAllocationOf([&](kxmd_error** error) {
        return kxmd_prepare_file(media.recording, target.c_str(),
            KXMD_STEP_CLEAN | KXMD_STEP_CLEAN_CAMERA_DATA, nullptr, 0, nullptr, error);
    });
    failEachAllocationOf([&](kxmd_error** error) {
        return kxmd_prepare_file(media.bare, target.c_str(), KXMD_STEP_INSERT_COVER, media.jpeg,
            media.jpeg_length, nullptr, error);
    });
    std::filesystem::remove(target);
    EXPECT_EQ(namesInFolder(), folderNames);
}

namespace {

/// Converts every file to the same one.
class Converter final : public KXTaskRunner {
public:
    explicit Converter(char const* result)
        : _result(result)
    {
    }

    std::optional<int> runToolAtPath(
        std::string const&, std::vector<std::string> const& arguments) const override
    {
        std::filesystem::copy_file(_result, arguments.back());
        return 0;
    }

private:
    char const* const _result;
};

}

TEST_F(COutOfMemory, ConversionsLeaveNoFolder)
{
    using namespace build;
    Bytes const tracks = track("soun", stsd(soundEntry("alac")));
    std::string const source = files.pathOf("lossless"), temporary = files.pathOf("temporary");
    Bytes const song = join(ftyp(), atom("moov", tracks));
    std::ofstream(source, std::ios::binary)
        .write(
            reinterpret_cast<char const*>(song.data()), static_cast<std::streamsize>(song.size()));
    std::filesystem::create_directory(temporary);
    auto const platform = std::make_shared<KXPlatform>(*KXPlatform::shared());
    platform->temporaryFolders = std::make_shared<FakeTemporaryFolders>(temporary);
    platform->taskRunner = std::make_shared<Converter>(media.song);
    KXPlatform::setShared(platform);
    failEachAllocationOf([&](kxmd_error** error) {
        bool const isDone = kxmd_prepare_file(
            source.c_str(), target.c_str(), KXMD_STEP_CONVERT, nullptr, 0, nullptr, error);
        EXPECT_EQ(::rmdir(temporary.c_str()), 0); // It is empty.
        EXPECT_EQ(::mkdir(temporary.c_str(), 0700), 0);
        return isDone;
    });
    KXPlatform::setShared(nullptr);
    EXPECT_EQ(bytesOfFile(target), bytesOfFile(media.song));
}

#ifdef KXMD_HAS_MOVIES

TEST_F(COutOfMemory, Probes)
{
    failEachAllocationOf([&](kxmd_error** error) {
        kxmd_probe* const probe = kxmd_probe_path(media.tagged, error);
        kxmd_probe_free(probe);
        return probe != nullptr;
    });
}

#endif

namespace {

/// Receives thumbnails, and lets go of them.
struct Receiver {
    std::atomic<int> calls { 0 };
    std::promise<void> called;
    std::function<void(kxmd_error const* error)> look;

    static void receive(kxmd_image* image, kxmd_error const* error, void* userData)
    {
        auto& receiver = *static_cast<Receiver*>(userData);
        EXPECT_NE(image == nullptr, error == nullptr);
        kxmd_image_free(image);
        if (receiver.look)
            receiver.look(error);
        if (!receiver.calls++)
            receiver.called.set_value();
    }

    bool requestFrom(kxmd_thumbnails* thumbnails, char const* path, kxmd_error** error)
    {
        return kxmd_thumbnails_request(
            thumbnails, path, 9, 9, KXMD_THUMBNAIL_FIT, receive, this, nullptr, error);
    }
};

}

TEST_F(COutOfMemory, HandlersAreCalledOnceUnlessTheRequestFailed)
{
    bool hasFailed = true;
    for (std::uint64_t count = 0; hasFailed; ++count) {
        ASSERT_LT(count, 1000u);
        kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(0, nullptr, nullptr, nullptr);
        Receiver receiver, last;
        kxmd_error* error = nullptr;
        bool isRequested;
        {
            FailingAllocation const failing(count);
            isRequested = receiver.requestFrom(thumbnails, media.picture, &error);
            hasFailed = failing.hasFailed();
        }
        EXPECT_EQ(isRequested, error == nullptr) << count;
        kxmd_error_free(error);
        EXPECT_TRUE(last.requestFrom(thumbnails, media.picture, nullptr));
        last.called.get_future().wait();
        EXPECT_EQ(receiver.calls, isRequested) << count;
        kxmd_thumbnails_free(thumbnails);
    }
}

TEST_F(COutOfMemory, HandlersLearnThatThePictureHadNoMemory)
{
    kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(0, nullptr, nullptr, nullptr);
    std::optional<FailingAllocation> failing; // Lives on the thread of the handlers.
    int failures = 0;
    bool hasFailed = true;
    for (std::uint64_t count = 0; hasFailed; ++count) {
        ASSERT_LT(count, 1000u);
        Receiver first, second;
        first.look = [&](kxmd_error const*) { failing.emplace(count); };
        second.look = [&](kxmd_error const* error) {
            hasFailed = failing->hasFailed();
            failing.reset();
            failures += kxmd_error_get_code(error) == KXMD_ERROR_MEMORY;
            EXPECT_NE(kxmd_error_get_code(error), KXMD_ERROR_INTERNAL);
            EXPECT_TRUE(hasFailed || !error);
        };
        EXPECT_TRUE(first.requestFrom(thumbnails, media.picture, nullptr));
        EXPECT_TRUE(second.requestFrom(thumbnails, media.picture, nullptr));
        second.called.get_future().wait();
    }
    EXPECT_GT(failures, 0);
    kxmd_thumbnails_free(thumbnails);
}
