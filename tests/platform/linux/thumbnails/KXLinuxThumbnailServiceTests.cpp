#include "kxmd/platform/linux/thumbnails/KXLinuxThumbnailServicePrivate.h"

#include "kxmd/image/KXImageFittingPrivate.h"
#include "kxmd/platform/KXPlatform.h"

#include "support/Fakes.h"
#include "support/Files.h"
#include "support/OpeningsOfFile.h"
#include "support/Pictures.h"
#include "support/Renders.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <limits>
#include <sys/stat.h>

using namespace build;
using namespace pictures;
namespace files = std::filesystem;

namespace {

/// Tests of this machine's own thumbnail service.
class KXLinuxThumbnailServiceTest : public testing::Test {
protected:
    std::string pictureFile(std::string const& name, KXImage const& image) const
    {
        auto const data = platform->pictureLoader->pngRepresentation(image);
        return folder.write(name, Bytes(data.bytes().begin(), data.bytes().end()));
    }

    KXImage::Ref rendered(std::string const& path, KXSize maximumSize) const
    {
        return platform->thumbnailService->imageForPath(path, maximumSize);
    }

    /// A service whose desktop has one program, which shows files of a content type.
    KXLinuxThumbnailService serviceWithProgramFor(std::string const& contentType) const
    {
        auto const picture = pictureFile("shown", *solid(8, 8, green));
        folder.write("a.thumbnailer",
            text("[Thumbnailer Entry]\nExec=/bin/cp " + picture + " %o\nMimeType=" + contentType
                + "\n"));
        return serviceWithPlaces({ {}, {}, { folder.path().string() } });
    }

    KXLinuxThumbnailService serviceWithPlaces(KXDocumentThumbnailer::Places places) const
    {
        return KXLinuxThumbnailService(
            { platform->pictureLoader, platform->movieLoader, rendersOfThisMachine(),
                std::make_shared<KXDocumentThumbnailer const>(
                    std::move(places), platform->pictureLoader, platform->temporaryFolders) });
    }

    KXPlatform::Ref const platform = KXPlatform::platformOfThisMachine();
    TemporaryFolder const folder;
};

}

TEST_F(KXLinuxThumbnailServiceTest, KeepsProportionsWithinTheMaximumSize)
{
    auto const path = pictureFile("wide.png", *photograph(300, 100));
    EXPECT_EQ(rendered(path, { 150, 150 })->size(), (KXSize { 150, 50 }));
    EXPECT_EQ(rendered(path, { 300, 10 })->size(), (KXSize { 30, 10 }));
    EXPECT_EQ(rendered(path, { 100.9, 100.9 })->size(), (KXSize { 100, 33 }));
    EXPECT_EQ(rendered(path, { 1, 1 })->size(), (KXSize { 1, 1 }));
}

TEST_F(KXLinuxThumbnailServiceTest, NeverEnlarges)
{
    auto const image = photograph(30, 20);
    auto const path = pictureFile("small.png", *image);
    for (KXSize const size : { KXSize { 30, 20 }, KXSize { 31, 500 }, KXSize { 1e9, 1e9 } })
        EXPECT_TRUE(areEqual(*rendered(path, size), *image));
}

TEST_F(KXLinuxThumbnailServiceTest, ShrunkPictureIsAllOfItAndUpright)
{
    auto const image = rendered(pictureFile("quarters.png", *quarters(90, 60)), { 30, 30 });
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 0, 0), red);
    EXPECT_EQ(pixel(*image, 29, 0), green);
    EXPECT_EQ(pixel(*image, 0, 19), blue);
    EXPECT_EQ(pixel(*image, 29, 19), white);
}

TEST_F(KXLinuxThumbnailServiceTest, SquareIsTheMiddleOfThePictureInExactlyTheSize)
{
    // Of 90 by 60 pixels, those of 15 to 75 across.
    auto const path = pictureFile("quarters.png", *quarters(90, 60));
    for (KXSize const size :
        { KXSize { 30, 30 }, KXSize { 200, 100 }, KXSize { 30.5, 20.25 }, KXSize { 2'100, 10 } }) {
        auto const image = platform->thumbnailService->squareForPath(path, size);
        ASSERT_TRUE(image) << size.width;
        EXPECT_EQ(image->size(), size);
        EXPECT_EQ(pixel(*image, 0, 0), red);
        EXPECT_EQ(pixel(*image, image->pixelWidth() * 3 / 4, 0), green);
        EXPECT_EQ(pixel(*image, 0, image->pixelHeight() - 2), blue);
    }
    for (KXSize const size : { KXSize { 0, 30 }, KXSize { 30, -1 }, KXSize { 1e9, 30 } })
        EXPECT_FALSE(platform->thumbnailService->squareForPath(path, size)) << size.width;
    EXPECT_FALSE(platform->thumbnailService->squareForPath("/missing", { 30, 30 }));
}

TEST_F(KXLinuxThumbnailServiceTest, FileIsOpenedOnlyIfThereIsRoomForAPicture)
{
    auto const path = pictureFile("quarters.png", *quarters(90, 60));
    auto const& service = *platform->thumbnailService;
    OpeningsOfFile openings(path);
    for (KXSize const size : { KXSize { 0.25, 30 }, KXSize { 30, 0.25 }, KXSize { 0, 0 } }) {
        EXPECT_FALSE(service.squareForPath(path, size));
        EXPECT_FALSE(service.imageForPath(path, size));
    }
    EXPECT_FALSE(openings.any());
    EXPECT_TRUE(service.squareForPath(path, { 30, 30 }));
    EXPECT_TRUE(openings.any());
}

TEST_F(KXLinuxThumbnailServiceTest, SquareIsResampledOnce)
{
    auto const image = photograph(1'000, 700);
    auto const path = pictureFile("photograph.png", *image);
    auto const expected = squareOfImage(image, { 128, 128 });
    auto const square = platform->thumbnailService->squareForPath(path, { 128, 128 });
    ASSERT_TRUE(square);
    EXPECT_TRUE(areEqual(*square, *expected));
}

TEST_F(KXLinuxThumbnailServiceTest, GoesByTheContentAndNotByTheName)
{
    EXPECT_TRUE(rendered(pictureFile("song.mp3", *quarters(9, 9)), { 50, 50 }));
    EXPECT_FALSE(rendered(folder.write("letter.png", text("a letter")), { 50, 50 }));
}

TEST_F(KXLinuxThumbnailServiceTest, WhatIsNoFileHasNoPicture)
{
    auto const pipe = folder.path() / "pipe.png";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (auto const& path : { std::string(), folder.path().string(), pipe.string(),
             (folder.path() / "missing.png").string() })
        EXPECT_FALSE(rendered(path, { 50, 50 })) << path;
    EXPECT_FALSE(rendered(folder.write("empty.png", {}), { 50, 50 }));
}

TEST_F(KXLinuxThumbnailServiceTest, SizeWithoutRoomForAPixelGivesNothing)
{
    auto const path = pictureFile("picture.png", *quarters(9, 9));
    for (double const length : { 0.0, -5.0, 0.9, std::numeric_limits<double>::quiet_NaN() }) {
        EXPECT_FALSE(rendered(path, { length, 50 })) << length;
        EXPECT_FALSE(rendered(path, { 50, length })) << length;
    }
    EXPECT_TRUE(rendered(path, { 1, 50 }));
}

TEST_F(KXLinuxThumbnailServiceTest, GIFByTheNameOfAnotherPictureIsShown)
{
    auto const image = rendered(folder.write("picture.png", gif(40, 20)), { 50, 50 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 40, 20 }));
}

TEST_F(KXLinuxThumbnailServiceTest, DrawingIsMadeAsLargeAsItIsShown)
{
    auto const drawing = [this](char const* size) {
        return folder.write("drawing.txt",
            text(std::string("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 2 1' ") + size
                + "><rect width='1' height='1' fill='red'/></svg>"));
    };
    if (!rendered(drawing("width='16' height='8'"), { 50, 50 }))
        GTEST_SKIP() << "no loader for SVG";
    for (char const* size : { "width='16' height='8'", "width='90000' height='45000'" }) {
        for (KXSize const maximum : { KXSize { 100, 100 }, { 100.9, 50 }, { 9000, 50.9 } }) {
            auto const image = rendered(drawing(size), maximum);
            ASSERT_TRUE(image) << size;
            EXPECT_EQ(image->size(), (KXSize { 100, 50 })) << size;
            EXPECT_EQ(countOf(*image, red), 50u * 50) << size; // With sharp edges.
            EXPECT_EQ(countOf(*image, transparent), 50u * 50) << size;
        }
    }
    EXPECT_EQ(
        rendered(drawing("width='16' height='8'"), { 1e9, 1e9 })->size(), (KXSize { 4096, 2048 }));
}

TEST_F(KXLinuxThumbnailServiceTest, FileIsKnownByItsFirst4096Bytes)
{
    // It shows a pixel of whatever it is given.
    auto const decoder = std::make_shared<KXRenderServer const>(KXMD_HOSTILE_DECODER);
    KXLinuxThumbnailService const service({ platform->pictureLoader, platform->movieLoader,
        std::make_shared<KXRenderPictureLoader const>(
            oneForAll(decoder), KXRenderLimits::forPictures()),
        std::make_shared<KXDocumentThumbnailer const>(KXDocumentThumbnailer::Places {},
            platform->pictureLoader, platform->temporaryFolders) });
    for (std::size_t const before : { 4'092u, 4'093u }) {
        std::string const comment = "<!--" + std::string(before - 7, ' ') + "-->";
        auto const path = folder.write("drawing.txt", text(comment + "<svg/>"));
        EXPECT_EQ(service.imageForPath(path, { 9, 9 }) != nullptr, before == 4'092) << before;
    }
}

TEST_F(KXLinuxThumbnailServiceTest, MusicIsShownByItsCover)
{
    auto const cover = platform->pictureLoader->pngRepresentation(*solid(20, 20, red));
    Bytes const picture(cover.bytes().begin(), cover.bytes().end());
    // A frame of MPEG audio, layer III, 128 kbit/s and 44100 Hz: 417 bytes, of silence.
    Bytes const silence = join(bytes({ 0xFF, 0xFB, 0x90, 0xC4 }), zeros(413));
    Bytes const frame = join(u8(3), text("image/png"), u8(0), u8(3), u8(0), picture);
    Bytes const frames
        = join(text("APIC"), u32(static_cast<std::uint32_t>(frame.size())), u16(0), frame);
    Bytes const tag = join(text("ID3"), bytes({ 3, 0, 0 }),
        syncSafe(static_cast<std::uint32_t>(frames.size())), frames);
    Bytes file = tag;
    for (int i = 0; i < 40; ++i)
        file = join(file, silence);
    auto const data = reader(file);
    if (!platform->movieLoader->movieWithData(*data))
        GTEST_SKIP() << "no movies";
    auto const image = rendered(folder.write("song.txt", file), { 50, 50 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 20, 20 }));
    EXPECT_EQ(pixel(*image, 10, 10), red);
}

TEST_F(KXLinuxThumbnailServiceTest, SongWithoutPictureNeedsNoDecoder)
{
    auto const movies = std::make_shared<FakeMovieLoader>();
    KXLinuxThumbnailService const service({ platform->pictureLoader, movies, rendersOfThisMachine(),
        std::make_shared<KXDocumentThumbnailer const>(KXDocumentThumbnailer::Places {},
            platform->pictureLoader, platform->temporaryFolders) });
    Bytes const song = join(bytes({ 0xFF, 0xFB, 0x90, 0xC4 }), zeros(413));
    EXPECT_FALSE(service.imageForPath(folder.write("bare.mp3", song), { 50, 50 }));
    EXPECT_FALSE(service.squareForPath(folder.write("bare.txt", song), { 50, 50 }));
    EXPECT_TRUE(movies->lengths().empty());
    Bytes const other = join(text("ID3"), bytes({ 3, 0, 0 }), syncSafe(4), text("APIC"), song);
    EXPECT_FALSE(service.imageForPath(folder.write("other.mp3", other), { 50, 50 }));
    EXPECT_EQ(movies->lengths(), (std::vector<std::uint64_t> { other.size() }));
}

TEST_F(KXLinuxThumbnailServiceTest, DocumentIsShownByTheProgramOfTheDesktop)
{
    auto const service = serviceWithProgramFor("text/plain");
    auto const letter = folder.write("-letter.txt", text("a letter"));
    auto const image = service.imageForPath(letter, { 4, 50 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 4, 4 }));
    auto const before = files::current_path();
    files::current_path(folder.path());
    EXPECT_TRUE(service.imageForPath("-letter.txt", { 50, 50 }));
    files::current_path(before);
    EXPECT_FALSE(service.imageForPath(folder.path().string(), { 50, 50 }));
}

TEST_F(KXLinuxThumbnailServiceTest, PDFIsShownByItsProgramBeforeThatOfTheDesktop)
{
    auto const picture = pictureFile("page", *solid(8, 8, red));
    auto const program = folder.write("pdf", text("#!/bin/sh\nexec cat " + picture + "\n"));
    files::permissions(program, files::perms::owner_all);
    (void)serviceWithProgramFor("application/pdf");
    auto const document = folder.write("a.pdf", text("%PDF-1.4\n"));
    for (auto const& [pdfProgram, colour] : { std::pair(program, red), { "/bin/false", green } }) {
        auto const image = serviceWithPlaces({ pdfProgram, {}, { folder.path().string() } })
                               .imageForPath(document, { 50, 50 });
        ASSERT_TRUE(image) << pdfProgram;
        EXPECT_EQ(pixel(*image, 4, 4), colour) << pdfProgram;
    }
}

TEST_F(KXLinuxThumbnailServiceTest, ListByTheNameOfAMovieIsGivenToNoProgram)
{
    std::string const tag("ID3\3\0\0\0\0\0\0", 10); // Makes music of it, and hides what it is.
    for (char const* type : { "video/mp4", "audio/x-mpegurl", "application/vnd.apple.mpegurl" }) {
        auto const service = serviceWithProgramFor(type);
        for (std::string const& list : { tag + "#EXTM3U\n#EXTINF:1,\nfile:///etc/passwd\n",
                 std::string("#EXTM3U\n#EXTINF:1,\nfile:///etc/passwd\n"), std::string("file.ts\n"),
                 std::string("ffconcat version 1.0\nfile /etc/passwd\n") })
            EXPECT_FALSE(service.imageForPath(folder.write("list.mp4", text(list)), { 50, 50 }))
                << list;
    }
}

TEST_F(KXLinuxThumbnailServiceTest, PictureThatIsRefusedIsGivenToNoProgram)
{
    auto const service = serviceWithProgramFor("image/png;image/jpeg;image/gif");
    for (Bytes const& bomb :
        { png(0x7FFFFFFF, 0x7FFFFFFF), png(30'000, 30'000), jpeg(64'250, 64'250, 1'800) })
        EXPECT_FALSE(service.imageForPath(folder.write("bomb", bomb), { 50, 50 }));
}

TEST_F(KXLinuxThumbnailServiceTest, DrawingThatCannotBeMadeIsGivenToNoProgram)
{
    auto const service = serviceWithProgramFor("image/svg+xml");
    EXPECT_FALSE(service.imageForPath(folder.write("a.svg", text("<svg><g>")), { 50, 50 }));
}

TEST_F(KXLinuxThumbnailServiceTest, PictureOfAKindThatNobodyHereKnowsIsGivenToAProgram)
{
    auto const service = serviceWithProgramFor("image/tiff");
    // Of a kind with numbers of 64 bits, say, or with none of the tables: not ours.
    Bytes const file = join(bytes({ 'I', 'I', '*', 0 }), zeros(200));
    EXPECT_TRUE(service.imageForPath(folder.write("scan.tiff", file), { 50, 50 }));
}

TEST_F(KXLinuxThumbnailServiceTest, HostileFilesTakeLittleTime)
{
    Bytes const picture = png(40, 40);
    Bytes const head(picture.begin(), picture.begin() + 33);
    Bytes frames = gif(1'000, 1'000);
    frames.pop_back(); // The trailer.
    for (int i = 0; i < 20'000; ++i)
        frames
            = join(std::move(frames), bytes({ ',', 0, 0, 0, 0, 1, 0, 1, 0, 0, 2, 2, 0x44, 1, 0 }));
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(rendered(folder.write("frames.gif", join(frames, text(";"))), { 50, 50 }));
    for (Bytes const& bomb : { jpeg(64'250, 64'250, 1'800), png(30'000, 30'000),
             join(head, pngChunk("zTXt", filled(10'000'000, 'x'))), gif(60'000, 60'000),
             atom("ftyp", text("heic"), zeros(100'000)), text("<svg>"),
             join(text("BM"), zeros(60)) })
        (void)rendered(folder.write("bomb", bomb), { 50, 50 });
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
}
