// The C interface, used by C on files that are made here.

#include "CMedia.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/kxmd_c.h"
#include "kxmd/version.h"
#include "support/LogCapture.h"
#include "support/OpeningsOfFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

void c_check(bool isTrue, char const* what, char const* file, int line)
{
    if (!isTrue)
        ADD_FAILURE_AT(file, line) << what;
}

namespace {

std::string contentsOf(std::string const& path)
{
    std::ifstream file(path);
    return { std::istreambuf_iterator<char>(file), {} };
}

/// Every name of ours that a bracket follows.
std::set<std::string> functionsIn(std::string const& text)
{
    constexpr std::string_view prefix = "kxmd_", letters = "abcdefghijklmnopqrstuvwxyz_";
    std::set<std::string> found;
    for (auto at = text.find(prefix); at != text.npos; at = text.find(prefix, at)) {
        auto const end = text.find_first_not_of(letters, at);
        if (end != text.npos && text[end] == '(')
            found.insert(text.substr(at, end - at));
        at = std::min(end, text.size());
    }
    return found;
}

class CInterface : public testing::Test {
protected:
    c_media const* media() const { return &files.media(); }

    CMedia const files;
    LogCapture const log;
};

}

TEST_F(CInterface, CUsesEveryFunction)
{
    std::string const folder = KXMD_SOURCE_FOLDER;
    auto const declared = functionsIn(contentsOf(folder + "/kxmd/kxmd_c.h"));
    auto const used = functionsIn(contentsOf(folder + "/tests/c/UseOfFiles.c")
        + contentsOf(folder + "/tests/c/UseOfServices.c"));
    EXPECT_GE(declared.size(), 50u);
    for (auto const& name : declared)
        EXPECT_TRUE(used.contains(name)) << name;
}

TEST_F(CInterface, Library)
{
    c_use_library(
        KXMD_VERSION, KXMD_VERSION_NUMBER, [](char const* text) { KXLog("Metadata", "%s", text); });
}

TEST_F(CInterface, NullIsRefused) { c_use_null(); }

TEST_F(CInterface, Song) { c_use_song(media()); }

TEST_F(CInterface, OtherFiles) { c_use_other_files(media()); }

TEST_F(CInterface, FilesThatFail) { c_use_files_that_fail(media()); }

TEST_F(CInterface, Images) { c_use_images(media()); }

TEST_F(CInterface, Covers) { c_use_covers(media()); }

TEST_F(CInterface, EditsInMemory) { c_use_edits_in_memory(media()); }

TEST_F(CInterface, EditsOfFiles) { c_use_edits_of_files(media()); }

TEST_F(CInterface, EditsThatFail) { c_use_edits_that_fail(media()); }

TEST_F(CInterface, Thumbnails) { c_use_thumbnails(media()); }

TEST_F(CInterface, Requests) { c_use_requests(media()); }

TEST_F(CInterface, RequestsInALoop) { c_use_requests_in_a_loop(media()); }

TEST_F(CInterface, RequestsThatAreCancelled) { c_use_requests_that_are_cancelled(media()); }

TEST_F(CInterface, FileOfUnknownTypeHasNoCover)
{
    kxmd_file* const file = kxmd_file_open_bytes("text", 4, nullptr);
    ASSERT_TRUE(file);
    EXPECT_EQ(kxmd_file_get_type(file), KXMD_TYPE_UNKNOWN);
    EXPECT_EQ(kxmd_file_get_cover_size(file), 0u);
    kxmd_file_free(file);
}

TEST_F(CInterface, RequestThatIsCancelledBeforeItsTurnOpensNothing)
{
    struct Handlers {
        std::promise<void> firstIsCalled, firstMayEnd, secondIsCalled;

        static void first(kxmd_image* image, kxmd_error const*, void* data)
        {
            kxmd_image_free(image);
            auto& handlers = *static_cast<Handlers*>(data);
            handlers.firstIsCalled.set_value();
            handlers.firstMayEnd.get_future().wait();
        }
        static void second(kxmd_image*, kxmd_error const* error, void* data)
        {
            EXPECT_EQ(kxmd_error_get_code(error), KXMD_ERROR_CANCELLED);
            static_cast<Handlers*>(data)->secondIsCalled.set_value();
        }
    } handlers;
    kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(0, nullptr, nullptr, nullptr);
    ASSERT_TRUE(kxmd_thumbnails_request(thumbnails, media()->picture, 9, 9, KXMD_THUMBNAIL_FIT,
        Handlers::first, &handlers, nullptr, nullptr));
    handlers.firstIsCalled.get_future().wait();
    OpeningsOfFile openings(media()->song);
    kxmd_request* request = nullptr;
    EXPECT_TRUE(kxmd_thumbnails_request(thumbnails, media()->song, 9, 9, KXMD_THUMBNAIL_FIT,
        Handlers::second, &handlers, &request, nullptr));
    kxmd_request_cancel(request);
    handlers.firstMayEnd.set_value();
    if (request)
        handlers.secondIsCalled.get_future().wait();
    EXPECT_FALSE(openings.any());
    kxmd_request_free(request);
    kxmd_image_free(
        kxmd_thumbnails_make(thumbnails, media()->song, 9, 9, KXMD_THUMBNAIL_FIT, nullptr));
    EXPECT_TRUE(openings.any());
    kxmd_thumbnails_free(thumbnails);
}

#ifdef KXMD_HAS_MOVIES

TEST_F(CInterface, Probe) { c_use_probe(media()); }

TEST_F(CInterface, Preparation) { c_use_preparation(media()); }

#endif
