#include "kxmd/platform/linux/thumbnails/KXDocumentThumbnailerPrivate.h"

#include "kxmd/platform/KXPlatform.h"
#include "support/Files.h"
#include "support/Pictures.h"
#include "support/Programs.h"
#include "support/Renders.h"
#include "support/SharedThumbnails.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace pictures;
namespace files = std::filesystem;

namespace {

/// Temporary folders in the folder of a test.
class FoldersInFolder final : public KXTemporaryFolders {
public:
    explicit FoldersInFolder(files::path parent)
        : _parent(std::move(parent))
    {
    }
    std::string applicationTempFolder() const override { return _parent.string(); }
    std::string applicationUniqueTempFolderWithPrefix(std::string_view prefix) const override
    {
        auto const path = _parent / (std::string(prefix) + std::to_string(++_count));
        files::create_directories(path);
        return path.string();
    }
    int count() const { return _count; }

private:
    files::path const _parent;
    mutable std::atomic<int> _count { 0 };
};

class KXDocumentThumbnailerTest : public testing::Test {
protected:
    KXDocumentThumbnailerTest()
    {
        auto const data = loader->pngRepresentation(*quarters(64, 64));
        folder.write("quarters.png", build::Bytes(data.bytes().begin(), data.bytes().end()));
    }

    KXDocumentThumbnailer thumbnailer(std::string const& pdfProgram = {}) const
    {
        return { { pdfProgram, (folder.path() / "shared").string(), { folder.path().string() } },
            loader, temporaryFolders };
    }

    /// One whose programs are confined, as those of this machine are.
    KXDocumentThumbnailer confinedThumbnailer(std::string const& pdfProgram = {}) const
    {
        return { { pdfProgram, {}, { folder.path().string() },
                     KXDocumentThumbnailer::Places::ofThisMachine().launcher },
            loader, temporaryFolders };
    }

    /// Whether a confined program that shows a picture can do something of the shell before.
    bool canDo(std::string const& action) const
    {
        install("/bin/bash -c '" + action + " && cp \"$0\" \"$1\"' %i %o");
        return confinedThumbnailer().imageOfDocument(picture(), "text/a", { 100, 100 }) != nullptr;
    }

    std::string picture() const { return (folder.path() / "quarters.png").string(); }

    void install(std::string const& command) const
    {
        folder.write("a.thumbnailer",
            build::text("[Thumbnailer Entry]\nMimeType=text/a\nExec=" + command + "\n"));
    }

    KXImage::Ref shown(std::string const& type = "text/a") const
    {
        return thumbnailer().imageOfDocument(document, type, { 100, 100 });
    }

    /// Keeps a blue thumbnail of the document, of 128 pixels, in the shared folder.
    void keepShared() const
    {
        struct stat status { };
        ASSERT_EQ(::stat(document.c_str(), &status), 0);
        auto const data = loader->pngRepresentation(*solid(128, 128, blue));
        files::create_directories(folder.path() / "shared/normal");
        folder.write("shared/normal/" + shared_thumbnails::nameFor(document),
            shared_thumbnails::withChunks({ data.bytes().begin(), data.bytes().end() },
                { shared_thumbnails::textChunk(
                      "Thumb::URI", shared_thumbnails::addressOf(document)),
                    shared_thumbnails::textChunk(
                        "Thumb::MTime", std::to_string(status.st_mtime)) }));
    }

    std::string copyCommand() const
    {
        return "/bin/cp " + (folder.path() / "quarters.png").string() + " %o";
    }

    TemporaryFolder const folder;
    std::shared_ptr<KXPictureLoader const> const loader
        = KXPlatform::platformOfThisMachine()->pictureLoader;
    std::shared_ptr<FoldersInFolder> const temporaryFolders
        = std::make_shared<FoldersInFolder>(folder.path() / "temporary");
    std::string const document = folder.write("letter.odt", build::text("letter"));
};

}

TEST_F(KXDocumentThumbnailerTest, IsMadeByTheProgramForTheType)
{
    EXPECT_FALSE(shown());
    install(copyCommand());
    auto const image = shown();
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 3, 3), red);
    EXPECT_FALSE(shown("text/b"));
    EXPECT_EQ(temporaryFolders->count(), 1); // None for what no program is there for.
}

TEST_F(KXDocumentThumbnailerTest, SharedThumbnailThatIsLargeEnoughGoesBeforeTheProgram)
{
    keepShared();
    install(copyCommand());
    auto const colourOf = [this](double sideLength) {
        auto const image
            = thumbnailer().imageOfDocument(document, "text/a", { sideLength, sideLength });
        return image ? pixel(*image, 3, 3) : transparent;
    };
    EXPECT_EQ(colourOf(100), blue);
    EXPECT_EQ(colourOf(128), blue);
    EXPECT_EQ(colourOf(128.5), red);
    install("/bin/false"); // Now a smaller one is better than none.
    EXPECT_EQ(colourOf(129), blue);
}

TEST_F(KXDocumentThumbnailerTest, ProgramsAreAskedFor16To2048Pixels)
{
    std::string const program = folder.write(
        "pdf", build::text("#!/bin/sh\necho $8 > " + (folder.path() / "asked").string() + "\n"));
    files::permissions(program, files::perms::owner_all);
    for (auto const& [size, asked] : { std::pair(KXSize { 1, 1 }, "16\n"), { { 16.5, 1 }, "17\n" },
             { { 1, 17 }, "17\n" }, { { 2047, 2047 }, "2047\n" }, { { 5000, 1 }, "2048\n" } }) {
        EXPECT_FALSE(thumbnailer(program).imageOfPDF(document, size));
        EXPECT_EQ(bytesOfFile(folder.path() / "asked"), build::text(asked));
    }
}

TEST_F(KXDocumentThumbnailerTest, LeavesNothingBehind)
{
    install(copyCommand());
    EXPECT_TRUE(shown());
    install("/bin/sh -c 'mkdir -p \"$1.d/e\"; touch \"$1.d/e/f\"; exit 1' x %o");
    EXPECT_FALSE(shown());
    EXPECT_TRUE(files::is_empty(folder.path() / "temporary"));
}

TEST_F(KXDocumentThumbnailerTest, ProgramThatMisbehavesGivesNothing)
{
    for (char const* command : { "/bin/false", "/bin/true", "/bin/mkdir %o", "/usr/bin/mkfifo %o",
             "/bin/sh -c 'echo no picture > $0' %o", "/bin/sh -c 'kill -SEGV $$'",
             "/bin/ln -s /dev/zero %o" }) {
        install(command);
        EXPECT_FALSE(shown()) << command;
    }
}

TEST_F(KXDocumentThumbnailerTest, WithoutATemporaryFolderThereIsNone)
{
    install(copyCommand());
    folder.write("temporary", {}); // In the way.
    class NoFolders final : public KXTemporaryFolders {
    public:
        std::string applicationTempFolder() const override { return {}; }
        std::string applicationUniqueTempFolderWithPrefix(std::string_view) const override
        {
            return {};
        }
    };
    KXDocumentThumbnailer const without(
        { {}, {}, { folder.path().string() } }, loader, std::make_shared<NoFolders const>());
    EXPECT_FALSE(without.imageOfDocument(document, "text/a", { 100, 100 }));
}

TEST_F(KXDocumentThumbnailerTest, PDFIsShownByItsProgram)
{
    std::string const program = folder.write("pdf",
        build::text("#!/bin/sh\n[ \"$*\" = \"-singlefile -cropbox -f 1 -l 1 -scale-to 100 -png "
            + document + "\" ] && cat " + (folder.path() / "quarters.png").string() + "\n"));
    files::permissions(program, files::perms::owner_all);
    EXPECT_TRUE(thumbnailer(program).imageOfPDF(document, { 99.5, 20 }));
    EXPECT_FALSE(thumbnailer(program).imageOfPDF(document, { 500, 20 }));
    EXPECT_FALSE(thumbnailer().imageOfPDF(document, { 100, 100 }));
    EXPECT_FALSE(thumbnailer("/bin/false").imageOfPDF(document, { 100, 100 }));
    EXPECT_FALSE(thumbnailer("/bin/echo").imageOfPDF(document, { 100, 100 }));
}

namespace {

/// A page of 200 by 100 points, its left half red; readers find the objects without a table.
build::Bytes pdfWithBoxes(std::string const& boxes)
{
    std::string const page = "1 0 0 rg 0 0 100 100 re f";
    return build::text("%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
                       "2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
                       "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 200 100]"
        + boxes + "/Contents 4 0 R>>endobj\n4 0 obj<</Length " + std::to_string(page.size())
        + ">>stream\n" + page + "\nendstream endobj\ntrailer<</Root 1 0 R>>\n%%EOF\n");
}

}

TEST_F(KXDocumentThumbnailerTest, FirstPageOfARealPDF)
{
    auto const places = KXDocumentThumbnailer::Places::ofThisMachine();
    if (places.pdfProgram.empty())
        GTEST_SKIP() << "no program for PDF";
    auto const pdf = folder.write("-page.pdf", pdfWithBoxes(""));
    auto const image = confinedThumbnailer(places.pdfProgram).imageOfPDF(pdf, { 100, 100 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 100, 50 }));
    EXPECT_EQ(pixel(*image, 20, 25), red);
    EXPECT_EQ(pixel(*image, 80, 25), white);
}

TEST_F(KXDocumentThumbnailerTest, PageOfARealPDFIsCroppedAsItSays)
{
    auto const places = KXDocumentThumbnailer::Places::ofThisMachine();
    if (places.pdfProgram.empty())
        GTEST_SKIP() << "no program for PDF";
    auto const pdf = folder.write("cropped.pdf", pdfWithBoxes("/CropBox[75 0 175 100]"));
    auto const image = confinedThumbnailer(places.pdfProgram).imageOfPDF(pdf, { 100, 100 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 100, 100 }));
    EXPECT_EQ(pixel(*image, 20, 50), red);
    EXPECT_EQ(pixel(*image, 30, 50), white);
}

TEST_F(KXDocumentThumbnailerTest, ConfinedProgramTouchesNothingButItsFiles)
{
    if (!isConfinementThere())
        GTEST_SKIP() << "this kernel has no Landlock";
    auto const other = folder.write("other", build::text("other"));
    auto const added = (folder.path() / "added").string();
    EXPECT_TRUE(canDo("true"));
    EXPECT_TRUE(canDo("echo x > \"$1.part\""));
    EXPECT_TRUE(canDo("echo x > /dev/null"));
    EXPECT_FALSE(canDo("cat " + other));
    EXPECT_FALSE(canDo("cat /etc/passwd"));
    EXPECT_FALSE(canDo("echo x > " + other));
    EXPECT_FALSE(canDo("echo x > " + added));
    EXPECT_FALSE(canDo("echo x > \"$0\""));
    EXPECT_FALSE(canDo("rm " + other));
    EXPECT_FALSE(canDo("ls " + folder.path().string()));
    EXPECT_FALSE(files::exists(added));
    EXPECT_EQ(bytesOfFile(other), build::text("other"));
}

TEST_F(KXDocumentThumbnailerTest, ConfinedProgramKnowsNothingOfTheUser)
{
    ::setenv("KXMD_SECRET", "secret", 1);
    EXPECT_TRUE(canDo("[ -z \"$KXMD_SECRET\" ]"));
    ::unsetenv("KXMD_SECRET");
    EXPECT_TRUE(canDo("[ \"$HOME\" = \"${1%%/*}\" ]")); // A folder that is removed.
}

TEST_F(KXDocumentThumbnailerTest, ConfinedProgramHasAnEnvironmentOfItsOwn)
{
    auto const launcher = KXDocumentThumbnailer::Places::ofThisMachine().launcher;
    auto const environmentWithFolder = [&](std::string const& given, std::string const& place) {
        return outputOf("env -i HOME=/home/a KXMD_SECRET=a PATH=/b LANG=de " + given + launcher
            + " " + picture() + " '" + place + "' /usr/bin/env | LC_ALL=C sort");
    };
    std::string const always = "LANG=C.UTF-8\nPATH=/usr/local/bin:/usr/bin:/bin\n";
    std::string const usual = "XDG_DATA_DIRS=/usr/local/share:/usr/share\n";
    EXPECT_EQ(environmentWithFolder("", ""), always + usual);
    EXPECT_EQ(environmentWithFolder("XDG_DATA_DIRS=/c:/d ", ""), always + "XDG_DATA_DIRS=/c:/d\n");
    EXPECT_EQ(environmentWithFolder("", "/e"),
        "HOME=/e\n" + always + "TMPDIR=/e\nXDG_CACHE_HOME=/e\nXDG_CONFIG_HOME=/e\n" + usual
            + "XDG_DATA_HOME=/e\n");
}

TEST_F(KXDocumentThumbnailerTest, LauncherThatCannotStartAProgramSaysSo)
{
    auto const statusWith = [this](std::string const& arguments) {
        auto const launcher = KXDocumentThumbnailer::Places::ofThisMachine().launcher;
        return outputOf(launcher + arguments + " >/dev/null 2>&1; echo $?");
    };
    std::string const given = " " + picture() + " ''";
    EXPECT_EQ(statusWith(given + " /bin/true"), "0\n");
    EXPECT_EQ(statusWith(given + " /bin/sh -c 'exit 7'"), "7\n");
    EXPECT_EQ(statusWith(given + " /no/such/program"), "126\n");
    EXPECT_EQ(statusWith(given), "126\n");
    EXPECT_EQ(statusWith(" a"), "126\n");
    EXPECT_EQ(statusWith(""), "126\n");
}

TEST_F(KXDocumentThumbnailerTest, ConfinedProgramReachesNobody)
{
    int const listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(::bind(listening, general, length), 0);
    ASSERT_EQ(::listen(listening, 5), 0);
    ASSERT_EQ(::getsockname(listening, general, &length), 0);
    std::string const connect
        = "exec 3<>/dev/tcp/127.0.0.1/" + std::to_string(ntohs(address.sin_port));
    EXPECT_FALSE(canDo(connect));
    install("/bin/bash -c '" + connect + " && cp \"$0\" \"$1\"' %i %o");
    EXPECT_TRUE(thumbnailer().imageOfDocument(picture(), "text/a", { 100, 100 }));
    ::close(listening);
}

TEST_F(KXDocumentThumbnailerTest, WithoutTheLauncherNoProgramRuns)
{
    install(copyCommand());
    KXDocumentThumbnailer const without(
        { {}, {}, { folder.path().string() }, "/no/such/launcher" }, loader, temporaryFolders);
    EXPECT_FALSE(without.imageOfDocument(document, "text/a", { 100, 100 }));
}
