#include "kxmd/platform/linux/thumbnails/KXDesktopThumbnailersPrivate.h"

#include "support/Files.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
namespace files = std::filesystem;

namespace {

class KXDesktopThumbnailersTest : public testing::Test {
protected:
    KXDesktopThumbnailersTest()
    {
        files::create_directory(folder.path() / "user");
        files::create_directory(folder.path() / "system");
    }

    void install(std::string const& name, std::string const& lines) const
    {
        folder.write(name, build::text("[Thumbnailer Entry]\n" + lines));
    }

    std::vector<std::string> command(std::string const& type) const
    {
        KXDesktopThumbnailers const thumbnailers({ (folder.path() / "user").string(),
            (folder.path() / "missing").string(), (folder.path() / "system").string() });
        return thumbnailers.commandForType(type, { "/a b/%c.odt", "/out/x.png", 256 });
    }

    TemporaryFolder const folder;
};

}

TEST_F(KXDesktopThumbnailersTest, FillsInTheCommand)
{
    install("user/a.thumbnailer",
        "TryExec=sh\nExec=/bin/sh -c 'a  b' %i --uri=%u -s%s %o %%\nMimeType=text/a;text/b;\n");
    for (char const* type : { "text/a", "text/b" }) {
        EXPECT_THAT(command(type),
            ElementsAre("/bin/sh", "-c", "a  b", "/a b/%c.odt", "--uri=file:///a%20b/%25c.odt",
                "-s256", "/out/x.png", "%"));
    }
    EXPECT_THAT(command("text/c"), IsEmpty());
    EXPECT_THAT(command(""), IsEmpty());
}

TEST_F(KXDesktopThumbnailersTest, FindsTheProgramInThePath)
{
    install("user/a.thumbnailer", "Exec=sh %i\nMimeType=text/a\n");
    auto const arguments = command("text/a");
    ASSERT_EQ(arguments.size(), 2u);
    EXPECT_EQ(arguments[0].front(), '/');
    EXPECT_TRUE(arguments[0].ends_with("/sh"));
}

TEST_F(KXDesktopThumbnailersTest, EarlierFolderGoesFirst)
{
    install("system/a.thumbnailer", "Exec=/bin/sh system\nMimeType=text/a;text/b\n");
    install("user/b.thumbnailer", "Exec=/bin/sh user\nMimeType=text/a\n");
    EXPECT_THAT(command("text/a"), ElementsAre("/bin/sh", "user"));
    EXPECT_THAT(command("text/b"), ElementsAre("/bin/sh", "system"));
}

TEST_F(KXDesktopThumbnailersTest, ProgramThatIsMissingIsPassedOver)
{
    install("user/a.thumbnailer", "TryExec=/no/such\nExec=/bin/sh a\nMimeType=text/a\n");
    install("user/b.thumbnailer", "TryExec=/bin/sh\nExec=/bin/sh b\nMimeType=text/a\n");
    install("user/c.thumbnailer", "Exec=/no/such\nMimeType=text/c\n");
    EXPECT_THAT(command("text/a"), ElementsAre("/bin/sh", "b"));
    EXPECT_THAT(command("text/c"), IsEmpty());
}

TEST_F(KXDesktopThumbnailersTest, OurOwnCommandIsPassedOver)
{
    auto const programs = folder.path() / "other prefix/bin";
    files::create_directories(programs);
    files::create_symlink("/bin/sh", programs / "kxmd"); // A program of that name.
    files::create_directory(programs / "link");
    files::create_directory(programs / "real");
    folder.write("other prefix/bin/real/kxmd", {});
    files::permissions(programs / "real/kxmd", files::perms::owner_all);
    files::create_symlink("../real/kxmd", programs / "link/show");
    std::vector<std::string> const lines { "kxmd thumbnail %i",
        "'" + (programs / "kxmd").string() + "' %i", "/usr/bin/env kxmd %i",
        "'" + (programs / "link/show").string() + "' %i" };
    for (std::string const& line : lines) {
        install("user/a.thumbnailer", "Exec=" + line + "\nMimeType=text/a;text/b\n");
        install("user/b.thumbnailer", "Exec=/bin/sh of-others\nMimeType=text/a\n");
        EXPECT_THAT(command("text/a"), ElementsAre("/bin/sh", "of-others")) << line;
        EXPECT_THAT(command("text/b"), IsEmpty()) << line;
    }
    install("user/a.thumbnailer", "Exec=/bin/sh kxmd.py %s\nMimeType=text/a\n");
    EXPECT_THAT(command("text/a"), ElementsAre("/bin/sh", "kxmd.py", "256"));
}

TEST_F(KXDesktopThumbnailersTest, FileHasUpTo64Kibibytes)
{
    std::string const start = "Exec=/bin/sh\nMimeType=text/a\n#";
    std::size_t const group = std::string("[Thumbnailer Entry]\n").size();
    for (std::size_t const length : { 65'536u, 65'537u }) {
        install("user/a.thumbnailer", start + std::string(length - group - start.size(), 'x'));
        EXPECT_EQ(files::file_size(folder.path() / "user/a.thumbnailer"), length);
        EXPECT_EQ(command("text/a").empty(), length > 65'536) << length;
    }
}

TEST_F(KXDesktopThumbnailersTest, FolderHasUpTo1024Files)
{
    for (int i = 0; i < 1'026; ++i) {
        std::string const number = std::to_string(i);
        install("user/" + number + ".thumbnailer", "Exec=/bin/sh\nMimeType=text/" + number + "\n");
    }
    KXDesktopThumbnailers const thumbnailers({ (folder.path() / "user").string() });
    int count = 0;
    for (int i = 0; i < 1'026; ++i)
        count += !thumbnailers.commandForType("text/" + std::to_string(i), {}).empty();
    EXPECT_EQ(count, 1'024);
}

TEST_F(KXDesktopThumbnailersTest, WhatCannotBeUnderstoodIsPassedOver)
{
    install("user/quote.thumbnailer", "Exec=/bin/sh 'a\nMimeType=text/quote\n");
    install("user/code.thumbnailer", "Exec=/bin/sh %x\nMimeType=text/code\n");
    install("user/end.thumbnailer", "Exec=/bin/sh %\nMimeType=text/end\n");
    install("user/empty.thumbnailer", "Exec=\nMimeType=text/empty\n");
    install("user/types.thumbnailer", "Exec=/bin/sh\n");
    install("user/other.desktop", "Exec=/bin/sh\nMimeType=text/desktop\n");
    install(
        "user/long.thumbnailer", "Exec=/bin/sh\nMimeType=text/long\n#" + std::string(70'000, 'x'));
    folder.write("user/bytes.thumbnailer", build::filled(1'000, 0xFF));
    folder.write("user/none.thumbnailer", {});
    files::create_directory(folder.path() / "user/folder.thumbnailer");
    files::create_symlink("loop.thumbnailer", folder.path() / "user/loop.thumbnailer");
    install("user/z.thumbnailer", "Exec=/bin/sh\nMimeType=text/good\n");
    for (char const* type : { "quote", "code", "end", "empty", "desktop", "long" })
        EXPECT_THAT(command(std::string("text/") + type), IsEmpty()) << type;
    EXPECT_THAT(command("text/good"), ElementsAre("/bin/sh"));
}

TEST_F(KXDesktopThumbnailersTest, NoShellReadsTheNameOfAFile)
{
    for (char const* line :
        { "sh -c 'cp %i %o'", "/bin/sh -ec 'cat %u'", "env bash -c \"x %i\"" }) {
        install("user/a.thumbnailer", "Exec=" + std::string(line) + "\nMimeType=text/a\n");
        EXPECT_TRUE(command("text/a").empty()) << line;
    }
    for (char const* line : { "sh %i", "sh -c 'cp \"$0\" x' %i", "env -c %i", "env sh -x %i" }) {
        install("user/a.thumbnailer", "Exec=" + std::string(line) + "\nMimeType=text/a\n");
        EXPECT_FALSE(command("text/a").empty()) << line;
    }
}
