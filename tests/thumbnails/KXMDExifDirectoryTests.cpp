#include "kxmd/thumbnails/KXMDExifParser.h"

#include "kxmd/platform/KXPlatform.h"
#include "support/Exif.h"
#include "support/Pictures.h"

#include <gtest/gtest.h>

using namespace build;

namespace {

constexpr TIFF order = TIFF::MM;
constexpr std::uint32_t offsetTag = 0x0201;
constexpr std::uint32_t lengthTag = 0x0202;
constexpr std::uint64_t base = 12;
constexpr std::uint32_t firstDirectory = 8;
constexpr std::uint32_t mostEntries = 1u << 20;
constexpr std::uint32_t mostDirectories = 1u << 20;

/// A preview that can be decoded.
Bytes encodedPreview()
{
    auto const loader = KXPlatform::platformOfThisMachine()->pictureLoader;
    auto const data = loader->jpgRepresentation(*pictures::quarters(32, 16));
    return Bytes(data.bytes().begin(), data.bytes().end());
}

/// A directory whose entries are all of tag 0.
Bytes directoryOfZeros(std::uint32_t entries, std::uint32_t next)
{
    return join(u16(entries), zeros(entries * entryLength), u32(next));
}

Bytes fileOf(Bytes const& tiff)
{
    return join(startOfImage, bytes({ 0xFF, 0xE1, 0xFF, 0xFF }), text("Exif"), zeros(2), tiff);
}

/// A chain of directories with `entries` entries in all, then one with the preview.
Bytes fileWithEntriesBeforePreview(std::uint32_t entries, Bytes const& preview)
{
    std::vector<Bytes> directories;
    std::uint32_t position = firstDirectory;
    while (entries) {
        std::uint32_t const count = std::min(entries, 0xFFFFu);
        entries -= count;
        position += directoryLength(count);
        directories.push_back(directoryOfZeros(count, position));
    }
    auto const length = static_cast<std::uint32_t>(preview.size());
    directories.push_back(directory(order,
        { entry(order, offsetTag, position + directoryLength(2)),
            entry(order, lengthTag, length) }));
    return fileOf(tiff(order, concatenated(directories), preview));
}

/// A chain of empty directories, then one with the preview.
Bytes fileWithDirectoriesBeforePreview(std::uint32_t directories)
{
    Bytes chain;
    std::uint32_t position = firstDirectory;
    for (std::uint32_t i = 0; i < directories; ++i) {
        position += directoryLength(0);
        chain = join(std::move(chain), directory(order, {}, position));
    }
    Bytes const preview = encodedPreview();
    auto const length = static_cast<std::uint32_t>(preview.size());
    return fileOf(tiff(order, chain,
        directory(order,
            { entry(order, offsetTag, position + directoryLength(2)),
                entry(order, lengthTag, length) }),
        preview));
}

bool findsPreview(Bytes bytes)
{
    KXMDExifParser parser;
    EXPECT_TRUE(parser.parseAbstractData(*reader(std::move(bytes))));
    return parser.thumbnail() != nullptr;
}

}

TEST(KXMDExifDirectory, PreviewIsDecoded)
{
    KXImage::Ref first;
    for (TIFF const someOrder : { TIFF::II, TIFF::MM }) {
        Bytes const preview = encodedPreview();
        auto const length = static_cast<std::uint32_t>(preview.size());
        std::uint32_t const after = firstDirectory + directoryLength(2);
        KXMDExifParser parser;
        EXPECT_TRUE(parser.parseAbstractData(*reader(fileOf(tiff(someOrder,
            directory(someOrder,
                { entry(someOrder, offsetTag, after), entry(someOrder, lengthTag, length) }),
            preview)))));
        ASSERT_TRUE(parser.thumbnail());
        EXPECT_EQ(parser.thumbnail()->size(), (KXSize { 32, 16 }));
        if (first) {
            EXPECT_TRUE(pictures::areEqual(*parser.thumbnail(), *first));
        }
        first = parser.thumbnail();
    }
}

TEST(KXMDExifDirectory, ChainThatBitesItsTailEnds)
{
    EXPECT_FALSE(findsPreview(fileOf(tiff(order, directory(order, {}, firstDirectory)))));
    std::uint32_t const second = firstDirectory + directoryLength(1);
    EXPECT_FALSE(
        findsPreview(fileOf(tiff(order, directory(order, { orientation(order, 1) }, second),
            directory(order, { orientation(order, 1) }, firstDirectory)))));
    EXPECT_FALSE(
        findsPreview(fileOf(tiff(order, directory(order, { orientation(order, 1) }, second),
            directory(order, { orientation(order, 1) }, second)))));
}

TEST(KXMDExifDirectory, ChainMayGoBackwards)
{
    // The first directory stands where it must, the second after the third.
    Bytes const preview = encodedPreview();
    auto const length = static_cast<std::uint32_t>(preview.size());
    std::uint32_t const third = firstDirectory + directoryLength(0);
    std::uint32_t const second = third + directoryLength(2);
    std::uint32_t const after = second + directoryLength(0);
    EXPECT_TRUE(findsPreview(fileOf(tiff(order, directory(order, {}, second),
        directory(order, { entry(order, offsetTag, after), entry(order, lengthTag, length) }),
        directory(order, {}, third), preview))));
}

TEST(KXMDExifDirectory, LongChainIsFollowedToItsEnd)
{
    // As many empty directories as no stack holds calls.
    EXPECT_TRUE(findsPreview(fileWithDirectoriesBeforePreview(mostDirectories - 1)));
}

TEST(KXMDExifDirectory, AFileHasABoundedNumberOfDirectories)
{
    // They cost no entries, but each place is remembered.
    EXPECT_FALSE(findsPreview(fileWithDirectoriesBeforePreview(mostDirectories)));
}

TEST(KXMDExifDirectory, AFileHasABoundedNumberOfEntries)
{
    Bytes const preview = encodedPreview();
    EXPECT_TRUE(findsPreview(fileWithEntriesBeforePreview(mostEntries - 2, preview)));
    EXPECT_FALSE(findsPreview(fileWithEntriesBeforePreview(mostEntries - 1, preview)));
    EXPECT_FALSE(findsPreview(fileWithEntriesBeforePreview(mostEntries + 5, preview)));
}

TEST(KXMDExifDirectory, EveryFileHasTheWholeBound)
{
    Bytes const preview = encodedPreview();
    KXMDExifParser parser;
    for (int i = 0; i < 3; ++i) {
        parser.setThumbnail(nullptr);
        EXPECT_TRUE(parser.parseAbstractData(
            *reader(fileWithEntriesBeforePreview(mostEntries - 2, preview))));
        EXPECT_TRUE(parser.thumbnail()) << i;
    }
}

TEST(KXMDExifDirectory, TheBoundIsWholeAfterAFileThatUsedPartOfIt)
{
    Bytes const preview = encodedPreview();
    KXMDExifParser parser;
    EXPECT_TRUE(parser.parseAbstractData(*reader(fileWithEntriesBeforePreview(10, preview))));
    parser.setThumbnail(nullptr);
    EXPECT_TRUE(
        parser.parseAbstractData(*reader(fileWithEntriesBeforePreview(mostEntries - 2, preview))));
    EXPECT_TRUE(parser.thumbnail());
}

TEST(KXMDExifDirectory, NoLinkDoesNotLeadToTheHeader)
{
    // From its third byte on the header would be a directory with the preview: its entries begin
    // four bytes after those of the true one.
    Bytes const preview = encodedPreview();
    auto const length = static_cast<std::uint32_t>(preview.size());
    auto const found = [&](std::uint32_t next) {
        constexpr std::uint32_t place = firstDirectory + directoryLength(3);
        Bytes const start
            = join(entry(order, 0, 0, 0, offsetTag << 16), entry(order, 0, 0, 0, lengthTag << 16));
        Bytes entries = join(start, entry(order, 0, 0));
        auto const put = [&entries](std::size_t at, std::uint32_t value) {
            std::ranges::copy(u32(value), entries.begin() + static_cast<std::ptrdiff_t>(at));
        };
        put(12, place);
        put(24, length);
        return findsPreview(fileOf(tiff(order, u16(3), entries, u32(next), preview)));
    };
    EXPECT_FALSE(found(0));
}

TEST(KXMDExifDirectory, OverlappingDirectoriesAreBoundedToo)
{
    // Every four bytes claim to be a directory of 65,535 entries, linked to the next: six billion
    // entries in a megabyte, and then the preview.
    constexpr std::uint32_t count = 100'000;
    Bytes const preview = encodedPreview();
    auto const length = static_cast<std::uint32_t>(preview.size());
    auto const fileOfOverlapping = [&](std::uint32_t directories) {
        Bytes content = filled(2 + 0xFFFF * entryLength, 0xFF);
        std::uint32_t const end
            = firstDirectory + static_cast<std::uint32_t>(content.size()) + 4 * directories;
        for (std::uint32_t i = 1; i < directories; ++i)
            content = join(std::move(content), u32(firstDirectory + 4 * i));
        return fileOf(tiff(order, content, u32(end),
            directory(order,
                { entry(order, offsetTag, end + directoryLength(2)),
                    entry(order, lengthTag, length) }),
            preview));
    };
    EXPECT_TRUE(findsPreview(fileOfOverlapping(15)));
    EXPECT_FALSE(findsPreview(fileOfOverlapping(17)));
    EXPECT_FALSE(findsPreview(fileOfOverlapping(count)));
}

TEST(KXMDExifDirectory, CountLargerThanTheFileEndsAtItsEnd)
{
    EXPECT_FALSE(findsPreview(fileOf(tiff(order, u16(0xFFFF), orientation(order, 1)))));
    // The preview is still found before the end.
    Bytes const preview = encodedPreview();
    auto const length = static_cast<std::uint32_t>(preview.size());
    std::uint32_t const after = firstDirectory + 2 + 2 * static_cast<std::uint32_t>(entryLength);
    EXPECT_TRUE(findsPreview(fileOf(tiff(order, u16(0xFFFF), entry(order, offsetTag, after),
        entry(order, lengthTag, length), preview))));
}

TEST(KXMDExifDirectory, NothingIsKeptOfTheFileBefore)
{
    Bytes const preview = encodedPreview();
    auto const length = static_cast<std::uint32_t>(preview.size());
    std::uint32_t const after = firstDirectory + directoryLength(1);
    // Each names one half of a preview that would be there.
    for (Bytes const& half : { entry(order, offsetTag, after), entry(order, lengthTag, length) }) {
        KXMDExifParser parser;
        EXPECT_TRUE(parser.parseAbstractData(*reader(fileWithEntriesBeforePreview(0, preview))));
        EXPECT_TRUE(parser.thumbnail());
        parser.setThumbnail(nullptr);
        EXPECT_TRUE(parser.parseAbstractData(
            *reader(fileOf(tiff(order, directory(order, { half }), preview, zeros(100))))));
        EXPECT_FALSE(parser.thumbnail());
        EXPECT_FALSE(parser.parseAbstractData(*reader(text("no photograph"))));
        EXPECT_EQ(parser.thumbnailAddress(), 0u);
        EXPECT_EQ(parser.thumbnailLength(), 0u);
    }
}

TEST(KXMDExifDirectory, DirectoriesReadByThemselvesSayWhetherThePreviewWasRead)
{
    auto const isRead = [](Bytes const& file) {
        auto const data = reader(file);
        data->setOffset(base + firstDirectory);
        return KXMDExifParser().readTagsFromData(*data, base, KXSwap::yes);
    };
    Bytes const preview = encodedPreview();
    Bytes const file = fileWithEntriesBeforePreview(0, preview);
    EXPECT_TRUE(isRead(file));
    EXPECT_FALSE(isRead(Bytes(file.begin(), file.end() - 1)));
    EXPECT_FALSE(isRead(fileWithEntriesBeforePreview(mostEntries, preview)));
    EXPECT_FALSE(isRead(fileOf(tiff(order, directory(order, {}, firstDirectory)))));
    EXPECT_FALSE(isRead(fileOf(tiff(order, directory(order, {})))));
}

TEST(KXMDExifDirectory, PartsMayBeReadByThemselves)
{
    Bytes const preview = encodedPreview();
    auto const length = static_cast<std::uint32_t>(preview.size());
    std::uint32_t const after = firstDirectory + directoryLength(2);
    Bytes const block = tiff(order,
        directory(order, { entry(order, offsetTag, after), entry(order, lengthTag, length) }),
        preview);

    auto const data = reader(join(text("Exif"), zeros(2), block));
    KXMDExifParser ofBlock;
    EXPECT_TRUE(ofBlock.readExifData(*data, 0));
    EXPECT_TRUE(ofBlock.thumbnail());
    EXPECT_EQ(ofBlock.thumbnailAddress(), 6u + after);

    data->setOffset(6 + firstDirectory);
    KXMDExifParser ofDirectories;
    EXPECT_TRUE(ofDirectories.readTagsFromData(*data, 6, KXSwap::yes));
    EXPECT_TRUE(ofDirectories.thumbnail());
    data->setOffset(6 + firstDirectory);
    KXMDExifParser inWrongOrder;
    EXPECT_FALSE(inWrongOrder.readTagsFromData(*data, 6, KXSwap::no));
}
