#include "kxmd/platform/linux/pictures/KXPictureProcessPrivate.h"

#include "kxmd/base/KXSanitizersPrivate.h"
#include "kxmd/platform/KXPlatform.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <unistd.h>

using namespace pictures;
namespace files = std::filesystem;

namespace {

class KXPictureProcessTest : public testing::Test {
protected:
    std::string drawing(std::string const& name, std::string const& content) const
    {
        return folder.write(name,
            build::text(
                "<svg xmlns='http://www.w3.org/2000/svg' width='400' height='200' viewBox='0 0 "
                "400 200'>"
                + content + "</svg>"));
    }

    /// A process by a program that is a shell script.
    KXPictureProcess processByScript(std::string const& script) const
    {
        std::string const path = folder.write("program", build::text("#!/bin/sh\n" + script));
        files::permissions(path, files::perms::owner_all);
        return KXPictureProcess(path);
    }

    TemporaryFolder const folder;
    KXPictureProcess const process { KXPictureProcess::installedProgram() };
    std::string const half = "<rect width='200' height='200' fill='blue'/>";
};

}

TEST_F(KXPictureProcessTest, ProgramIsInstalled)
{
    EXPECT_EQ(::access(KXPictureProcess::installedProgram().c_str(), X_OK), 0);
}

TEST_F(KXPictureProcessTest, ShowsADrawingInTheSizeThatIsWanted)
{
    auto const image = process.imageForPath(drawing("a.svg", half), { 100, 100 });
    if (!image)
        GTEST_SKIP() << "no loader for SVG";
    ASSERT_TRUE(*image);
    EXPECT_EQ((*image)->size(), (KXSize { 100, 50 }));
    EXPECT_EQ(pixel(**image, 20, 20), blue);
    EXPECT_EQ(pixel(**image, 80, 20), transparent);
    EXPECT_EQ((*process.imageForPath(drawing("a.svg", half), { 9000, 9000 }))->size(),
        (KXSize { 400, 200 }));
}

TEST_F(KXPictureProcessTest, NameMayBeginWithAnythingAndHoldAnything)
{
    for (char const* name : { "-o", "--help", "a b\n$(id).svg", "\xFF\xFE.svg" }) {
        auto const path = drawing(name, half);
        if (!process.imageForPath(path, { 10, 10 }))
            GTEST_SKIP() << "no loader for SVG";
        EXPECT_TRUE(*process.imageForPath(path, { 10, 10 })) << name;
    }
}

TEST_F(KXPictureProcessTest, LargePictureComesWhole)
{
    auto const image = process.imageForPath(drawing("a.svg", half), { 400.5, 200.25 });
    if (!image)
        GTEST_SKIP() << "no loader for SVG";
    EXPECT_EQ((*image)->size(), (KXSize { 400, 200 }));
    auto const loader = KXPlatform::platformOfThisMachine()->pictureLoader;
    auto const large = loader->pngRepresentation(*solid(6'000, 4'000, blue));
    auto const path = folder.write("a", build::Bytes(large.bytes().begin(), large.bytes().end()));
    auto const all = process.imageForPath(path, { 1e9, 1e9 });
    ASSERT_TRUE(all);
    ASSERT_TRUE(*all);
    EXPECT_EQ((*all)->size(), (KXSize { 6'000, 4'000 }));
}

TEST_F(KXPictureProcessTest, WhatIsNoPictureIsAbsent)
{
    EXPECT_FALSE(process.imageForPath(folder.write("a", build::text("a letter")), { 10, 10 }));
    EXPECT_FALSE(process.imageForPath(folder.write("b", {}), { 10, 10 }));
}

TEST_F(KXPictureProcessTest, FileThatCannotBeReadIsNothing)
{
    auto const image = process.imageForPath("/no/such/file", { 10, 10 });
    ASSERT_TRUE(image);
    EXPECT_FALSE(*image);
}

TEST_F(KXPictureProcessTest, ProgramTellsWhatWasWrongByItsStatus)
{
    auto const runner = KXPlatform::platformOfThisMachine()->taskRunner;
    std::string const program = KXPictureProcess::installedProgram();
    std::string const letter = folder.write("letter", build::text("a letter"));
    EXPECT_EQ(runner->runToolAtPath(program, { "1", "1", letter }), 0);
    EXPECT_EQ(runner->runToolAtPath(program, { "1", "1", "/no/such/file" }), 1);
    EXPECT_EQ(runner->runToolAtPath(program, { "0.9", "1", letter }), 1);
    EXPECT_EQ(runner->runToolAtPath(program, { "1", "0.9", letter }), 1);
    EXPECT_EQ(runner->runToolAtPath(program, { "nan", "1", letter }), 1);
    LogCapture const log;
    EXPECT_EQ(runner->runToolAtPath(program, { "1", "1" }), 2);
    EXPECT_EQ(runner->runToolAtPath(program, { "1", "1", letter, letter }), 2);
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(KXPictureProcessTest, PictureThatCannotBeWrittenIsAFailure)
{
    auto const loader = KXPlatform::platformOfThisMachine()->pictureLoader;
    auto const data = loader->pngRepresentation(*solid(5, 3, blue));
    auto const path = folder.write("a", build::Bytes(data.bytes().begin(), data.bytes().end()));
    auto const image = process.imageForPath(path, { 5, 5 });
    ASSERT_TRUE(image && *image);
    EXPECT_EQ((*image)->size(), (KXSize { 5, 3 })); // Odd lengths are told as they are.
    EXPECT_EQ(KXPlatform::platformOfThisMachine()->taskRunner->runToolAtPath("/bin/sh",
                  { "-c", "exec \"$0\" 5 5 \"$1\" > /dev/full",
                      KXPictureProcess::installedProgram(), path }),
        1);
}

TEST_F(KXPictureProcessTest, SizeIsToldInWholePixelsUpToAMebi)
{
    auto const asked = folder.path() / "asked";
    auto const telling
        = processByScript("echo $1 $2 > " + asked.string() + "; printf '\\0\\0\\0\\1'");
    for (auto const& [size, words] : { std::pair(KXSize { 1e9, 0.5 }, "1048576 1\n"),
             { { 1'048'577, 2 }, "1048576 2\n" }, { { 2.1, 1'048'575 }, "3 1048575\n" } }) {
        (void)telling.imageForPath("/x", size);
        EXPECT_EQ(bytesOfFile(asked), build::text(words));
    }
}

TEST_F(KXPictureProcessTest, DrawingReadsNoOtherFile)
{
    std::string const other = drawing("other.svg", half);
    auto const image = process.imageForPath(
        drawing("a.svg", "<image width='400' height='200' href='file://" + other + "'/>"),
        { 100, 100 });
    if (!image)
        GTEST_SKIP() << "no loader for SVG";
    ASSERT_TRUE(*image);
    EXPECT_EQ(countOf(**image, transparent), 5'000u);
}

TEST_F(KXPictureProcessTest, EntitiesThatMultiplyAreRefused)
{
    std::string declarations = "<!ENTITY a0 'lol lol lol'>";
    for (int i = 1; i < 12; ++i) {
        declarations += "<!ENTITY a" + std::to_string(i) + " '";
        for (int times = 0; times < 10; ++times)
            declarations += "&a" + std::to_string(i - 1) + ";";
        declarations += "'>";
    }
    auto const path = folder.write("laughs.svg",
        build::text("<!DOCTYPE svg [" + declarations
            + "]><svg xmlns='http://www.w3.org/2000/svg' width='9' "
              "height='9'><text>&a11;</text></svg>"));
    auto const begin = std::chrono::steady_clock::now();
    (void)process.imageForPath(path, { 100, 100 });
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(12));
}

TEST_F(KXPictureProcessTest, ProgramThatMisbehavesGivesNothing)
{
    for (char const* script :
        { "exit 1", "kill -SEGV $$", "printf abc", "printf '\\0\\0\\0\\1\\0\\0\\0\\1abc'",
            "printf '\\0377\\0377\\0377\\0377\\0377\\0377\\0377\\0377abcd'",
            "printf '\\0\\0\\0\\1\\0\\0\\0\\1abcde'", "printf '\\0\\0\\0\\0\\0\\0\\0\\0'" }) {
        auto const image = processByScript(script).imageForPath("/x", { 10, 10 });
        ASSERT_TRUE(image) << script;
        EXPECT_FALSE(*image) << script;
    }
    auto const image
        = processByScript("printf '\\0\\0\\0\\1\\0\\0\\0\\1abcd'").imageForPath("/x", { 10, 10 });
    ASSERT_TRUE(image);
    ASSERT_TRUE(*image);
    EXPECT_EQ(pixel(**image, 0, 0), (Colour { 'a', 'b', 'c', 'd' }));
}

TEST_F(KXPictureProcessTest, ProgramHasAGibibyteOfMemoryAndHalfAsMuchToWrite)
{
#if KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER
    GTEST_SKIP() << "sanitizers have memory of their own";
#endif
    // It is bounded a moment after it begins to run.
    auto const image
        = processByScript("for line in 'data size *1073741824 ' 'file size *536870912 '; do\n"
                          "until grep -q \"$line\" /proc/self/limits; do sleep 0.1; done\n"
                          "done\n"
                          "printf '\\0\\0\\0\\1\\0\\0\\0\\1abcd'")
              .imageForPath("/x", { 10, 10 });
    ASSERT_TRUE(image);
    EXPECT_TRUE(*image);
}

TEST_F(KXPictureProcessTest, MissingProgramGivesNothing)
{
    auto const image = KXPictureProcess("/no/such/program").imageForPath("/x", { 10, 10 });
    ASSERT_TRUE(image);
    EXPECT_FALSE(*image);
}
