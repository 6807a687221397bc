// The C interface, used by C on files that are made here.

#include "CMedia.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/kxmd_c.h"
#include "kxmd/version.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>

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

std::set<std::string> functionsIn(std::string const& text, char const* pattern)
{
    std::regex const name(pattern);
    std::set<std::string> found;
    for (std::sregex_iterator call(text.begin(), text.end(), name); call != std::sregex_iterator();
         ++call)
        found.insert((*call)[1]);
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
    auto const declared = functionsIn(
        contentsOf(folder + "/kxmd/kxmd_c.h"), "KXMD_C_EXPORT [^(]*?[ *](kxmd_[a-z_]+)\\(");
    auto const used = functionsIn(contentsOf(folder + "/tests/c/UseOfFiles.c")
            + contentsOf(folder + "/tests/c/UseOfServices.c"),
        "(kxmd_[a-z_]+)\\(");
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

#ifdef KXMD_HAS_MOVIES

TEST_F(CInterface, Probe) { c_use_probe(media()); }

TEST_F(CInterface, Preparation) { c_use_preparation(media()); }

#endif
