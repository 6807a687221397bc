#include "kxmd/thumbnails/KXMDExifParser.h"

#include "support/Exif.h"
#include "support/Fakes.h"
#include "support/LogCapture.h"
#include "support/Pictures.h"

#include <gmock/gmock.h>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr TIFF bothOrders[] { TIFF::II, TIFF::MM };
constexpr std::uint32_t offsetTag = 0x0201; // JPEGInterchangeFormat.
constexpr std::uint32_t lengthTag = 0x0202;
constexpr std::uint32_t otherTag = 0x010F; // The camera's maker.
constexpr std::uint64_t baseAfterStart = 12; // Of a block right after the start of image.
constexpr std::uint32_t firstDirectory = 8;

/// Tests with a picture loader that takes words for pictures.
class KXMDExifParserTest : public testing::Test {
protected:
    void SetUp() override { loader->setImageForWord(preview, "preview"); }

    bool parse(Bytes bytes) { return parser.parseAbstractData(*reader(std::move(bytes))); }

    /// What the loader was given.
    std::vector<std::string> words() const
    {
        std::vector<std::string> words;
        for (auto const& call : loader->calls())
            words.push_back(call.word);
        return words;
    }

    KXImage::Ref const preview = pictures::solid(3, 2, pictures::green);
    std::shared_ptr<FakePictureLoader> const loader = std::make_shared<FakePictureLoader>();
    KXPlatform::Ref const platform = FakeMachine { .pictureLoader = loader }.platform();
    KXMDExifParser parser { platform };
};

/// A block whose second directory has the preview, which stands after it.
Bytes blockWithPreview(TIFF order)
{
    std::uint32_t const second = firstDirectory + directoryLength(2);
    std::uint32_t const after = second + directoryLength(3);
    return exif(
        tiff(order, directory(order, { orientation(order, 1), entry(order, otherTag, 7) }, second),
            directory(order,
                { entry(order, 0x0103, 6, tiffShort), entry(order, offsetTag, after),
                    entry(order, lengthTag, 7) }),
            text("preview")));
}

/// A block with these entries in its only directory, and the preview after it.
Bytes blockWithEntries(TIFF order, std::vector<Bytes> const& entries)
{
    return exif(tiff(order, directory(order, entries), text("preview")));
}

std::uint32_t afterDirectory(std::uint32_t entries)
{
    return firstDirectory + directoryLength(entries);
}

Bytes const endOfImage = bytes({ 0xFF, 0xD9 });

}

// Where the block stands.

TEST_F(KXMDExifParserTest, FindsThePreviewInBothByteOrders)
{
    for (TIFF const order : bothOrders) {
        KXMDExifParser other(platform);
        auto const data = reader(join(startOfImage, blockWithPreview(order), endOfImage));
        EXPECT_TRUE(other.parseAbstractData(*data));
        EXPECT_EQ(other.thumbnail(), preview);
        EXPECT_EQ(other.thumbnailAddress(), baseAfterStart + 8 + 30 + 42);
        EXPECT_EQ(other.thumbnailLength(), 7u);
    }
    EXPECT_THAT(words(), ElementsAre("preview", "preview"));
}

TEST_F(KXMDExifParserTest, BlockMayStandAfterTheJFIFSegment)
{
    EXPECT_TRUE(parse(join(startOfImage, jfif(), blockWithPreview(TIFF::MM), endOfImage)));
    EXPECT_EQ(parser.thumbnail(), preview);
    EXPECT_TRUE(parse(join(startOfImage, app(0, zeros(60'000)), blockWithPreview(TIFF::II))));
    EXPECT_TRUE(parse(join(startOfImage, app(0, {}), blockWithPreview(TIFF::II))));
    EXPECT_EQ(words().size(), 3u);
}

TEST_F(KXMDExifParserTest, BlockAfterAnyOtherSegmentIsRefused)
{
    Bytes const block = blockWithPreview(TIFF::MM);
    EXPECT_FALSE(parse(join(startOfImage, jfif(), app(2, zeros(4)), block)));
    EXPECT_FALSE(parse(join(startOfImage, jfif(), jfif(), block)));
    for (std::uint32_t number = 2; number < 16; ++number)
        EXPECT_FALSE(parse(join(startOfImage, app(number, zeros(4)), block))) << number;
    EXPECT_FALSE(parse(join(startOfImage, bytes({ 0xFF, 0xFE, 0, 2 }), block))); // A comment.
    EXPECT_FALSE(parse(join(startOfImage, bytes({ 0xFF }), block))); // Fill bytes neither.
    EXPECT_THAT(words(), IsEmpty());
}

TEST_F(KXMDExifParserTest, WhatIsNoJPEGIsRefused)
{
    Bytes const block = blockWithPreview(TIFF::MM);
    EXPECT_FALSE(parse({}));
    EXPECT_FALSE(parse(block));
    EXPECT_FALSE(parse(join(bytes({ 0xFF, 0xD9 }), block)));
    EXPECT_FALSE(parse(join(bytes({ 0xD8, 0xFF }), block)));
    EXPECT_FALSE(parse(build::png(40, 30)));
    EXPECT_FALSE(parse(build::jpeg(40, 30)));
    EXPECT_FALSE(parse(join(startOfImage, jfif(), endOfImage)));
}

TEST_F(KXMDExifParserTest, SegmentTooShortForItsOwnLengthIsRefused)
{
    Bytes const block = blockWithPreview(TIFF::MM);
    for (int const length : { 0, 1 })
        EXPECT_FALSE(parse(join(startOfImage, bytes({ 0xFF, 0xE0, 0, length }), block))) << length;
    EXPECT_FALSE(parse(join(startOfImage, bytes({ 0xFF, 0xE0, 0xFF, 0xFF }), block)));
}

TEST_F(KXMDExifParserTest, LengthOfTheBlockIsNotUsed)
{
    for (int const length : { 0, 1, 0xFF }) {
        Bytes block = blockWithPreview(TIFF::MM);
        block[2] = block[3] = static_cast<std::uint8_t>(length);
        EXPECT_TRUE(parse(join(startOfImage, block))) << length;
    }
    EXPECT_EQ(words().size(), 3u);
}

TEST_F(KXMDExifParserTest, ReadsFromTheStartWhereverTheReaderStands)
{
    auto const data = reader(join(startOfImage, blockWithPreview(TIFF::MM)));
    data->setOffset(17);
    EXPECT_TRUE(parser.parseAbstractData(*data));
    EXPECT_EQ(parser.thumbnail(), preview);
}

// The header of the block.

TEST_F(KXMDExifParserTest, BlockMustBearItsIdentifier)
{
    Bytes const inside = tiff(TIFF::MM, directory(TIFF::MM, {}));
    EXPECT_TRUE(parse(join(startOfImage, app(1, join(text("Exif"), zeros(2), inside)))));
    // The two bytes after it may be anything.
    EXPECT_TRUE(parse(join(startOfImage, app(1, join(text("Exif"), text("??"), inside)))));
    for (char const* identifier : { "exif", "EXIF", "Exiv", "http" })
        EXPECT_FALSE(parse(join(startOfImage, app(1, join(text(identifier), zeros(2), inside)))))
            << identifier;
    EXPECT_FALSE(parse(join(startOfImage, app(1, join(bytes({ 'E', 'x', 'i', 0xE6 }), inside)))));
}

TEST_F(KXMDExifParserTest, HeaderMustBeThatOfTIFF)
{
    auto const block
        = [](Bytes const& header) { return join(startOfImage, exif(join(header, zeros(20)))); };
    for (TIFF const order : bothOrders) {
        Bytes const mark = text(order == TIFF::MM ? "MM" : "II");
        TIFF const otherOrder = order == TIFF::MM ? TIFF::II : TIFF::MM;
        EXPECT_TRUE(parse(block(join(mark, u16(order, 42), u32(order, 8)))));
        EXPECT_FALSE(parse(block(join(mark, u16(order, 43), u32(order, 8))))); // BigTIFF.
        EXPECT_FALSE(parse(block(join(mark, u16(otherOrder, 42), u32(order, 8)))));
        EXPECT_FALSE(parse(block(join(mark, u16(order, 42), u32(otherOrder, 8)))));
        EXPECT_FALSE(parse(block(join(text("IM"), u16(order, 42), u32(order, 8)))));
        EXPECT_FALSE(parse(block(join(text("MI"), u16(order, 42), u32(order, 8)))));
    }
}

TEST_F(KXMDExifParserTest, FirstDirectoryMustFollowTheHeaderAtOnce)
{
    // Any offset is good TIFF, but no camera's.
    for (std::uint32_t const offset : { 0u, 7u, 9u, 16u, 0x00080000u }) {
        Bytes const block = exif(join(text("MM"), u16(42), u32(offset), zeros(8),
            directory(TIFF::MM, { entry(TIFF::MM, offsetTag, 46), entry(TIFF::MM, lengthTag, 7) }),
            text("preview")));
        EXPECT_FALSE(parse(join(startOfImage, block))) << offset;
    }
    EXPECT_THAT(words(), IsEmpty());
}

// Entries.

TEST_F(KXMDExifParserTest, BlockWithoutPreviewIsStillOne)
{
    for (TIFF const order : bothOrders) {
        EXPECT_TRUE(parse(join(startOfImage, blockWithEntries(order, {}))));
        EXPECT_TRUE(parse(join(startOfImage,
            blockWithEntries(order, { orientation(order, 6), entry(order, otherTag, 1) }))));
        EXPECT_FALSE(parser.thumbnail());
        EXPECT_EQ(parser.thumbnailAddress(), 0u);
        EXPECT_EQ(parser.thumbnailLength(), 0u);
    }
    EXPECT_THAT(words(), IsEmpty());
}

TEST_F(KXMDExifParserTest, PreviewMayBeNamedInTheFirstDirectoryInEitherOrder)
{
    for (TIFF const order : bothOrders) {
        Bytes const offset = entry(order, offsetTag, afterDirectory(3));
        Bytes const length = entry(order, lengthTag, 7);
        Bytes const other = entry(order, otherTag, 0xFFFF);
        for (auto const& entries : { std::vector { offset, length, other },
                 std::vector { length, other, offset }, std::vector { other, length, offset } }) {
            parser.setThumbnail(nullptr);
            EXPECT_TRUE(parse(join(startOfImage, blockWithEntries(order, entries))));
            EXPECT_EQ(parser.thumbnail(), preview);
        }
    }
}

TEST_F(KXMDExifParserTest, OffsetCountsFromTheHeader)
{
    std::uint32_t const second = afterDirectory(0);
    Bytes const block = exif(tiff(TIFF::II, directory(TIFF::II, {}, second),
        directory(
            TIFF::II, { entry(TIFF::II, offsetTag, 0x1234), entry(TIFF::II, lengthTag, 7) })));
    Bytes file = join(startOfImage, block);
    file.resize(0x1240);
    EXPECT_TRUE(parse(join(file, text("preview"))));
    EXPECT_EQ(parser.thumbnailAddress(), 0x1240u);
    EXPECT_EQ(parser.thumbnail(), preview);
}

TEST_F(KXMDExifParserTest, TypeAndCountOfAnEntryDoNotMatter)
{
    for (TIFF const order : bothOrders) {
        for (std::uint32_t const type : { 0u, tiffShort, 0xFFFFu }) {
            parser.setThumbnail(nullptr);
            EXPECT_TRUE(parse(join(startOfImage,
                blockWithEntries(order,
                    { entry(order, offsetTag, afterDirectory(2), type, 0),
                        entry(order, lengthTag, 7, type, 0xFFFFFFFF) }))));
            EXPECT_EQ(parser.thumbnail(), preview) << type;
        }
    }
}

TEST_F(KXMDExifParserTest, HalvesMayStandInDifferentDirectories)
{
    for (auto const& [first, second] :
        { std::pair(offsetTag, lengthTag), { lengthTag, offsetTag } }) {
        std::uint32_t const next = afterDirectory(1), after = next + directoryLength(1);
        auto const half = [after](std::uint32_t tag) {
            return entry(TIFF::MM, tag, tag == offsetTag ? after : 7);
        };
        parser.setThumbnail(nullptr);
        EXPECT_TRUE(parse(join(startOfImage,
            exif(tiff(TIFF::MM, directory(TIFF::MM, { half(first) }, next),
                directory(TIFF::MM, { half(second) }), text("preview"))))));
        EXPECT_EQ(parser.thumbnail(), preview);
    }
}

TEST_F(KXMDExifParserTest, LengthZeroIsNotFoundAndTheWalkGoesOn)
{
    std::uint32_t const next = afterDirectory(2), after = next + directoryLength(1);
    auto const block = [=](std::uint32_t lastLength) {
        return exif(tiff(TIFF::MM,
            directory(TIFF::MM,
                { entry(TIFF::MM, offsetTag, after), entry(TIFF::MM, lengthTag, 0) }, next),
            directory(TIFF::MM, { entry(TIFF::MM, lengthTag, lastLength) }), text("preview")));
    };
    EXPECT_TRUE(parse(join(startOfImage, block(0))));
    EXPECT_FALSE(parser.thumbnail());
    EXPECT_THAT(words(), IsEmpty());
    EXPECT_TRUE(parse(join(startOfImage, block(7))));
    EXPECT_EQ(parser.thumbnail(), preview);
}

TEST_F(KXMDExifParserTest, NothingIsReadAfterTheEntryThatCompletesThePreview)
{
    // The same tags once more, for another picture.
    EXPECT_TRUE(parse(join(startOfImage,
        blockWithEntries(TIFF::MM,
            { entry(TIFF::MM, offsetTag, afterDirectory(4)), entry(TIFF::MM, lengthTag, 7),
                entry(TIFF::MM, offsetTag, 1), entry(TIFF::MM, lengthTag, 1) }))));
    EXPECT_THAT(words(), ElementsAre("preview"));
}

TEST_F(KXMDExifParserTest, LaterValueReplacesAnEarlierOne)
{
    EXPECT_TRUE(parse(join(startOfImage,
        blockWithEntries(TIFF::MM,
            { entry(TIFF::MM, offsetTag, 1), entry(TIFF::MM, offsetTag, afterDirectory(3)),
                entry(TIFF::MM, lengthTag, 7) }))));
    EXPECT_THAT(words(), ElementsAre("preview"));
}

TEST_F(KXMDExifParserTest, EntryThatIsCutOffHasNoValue)
{
    Bytes block = blockWithEntries(
        TIFF::MM, { entry(TIFF::MM, lengthTag, 7), entry(TIFF::MM, offsetTag, 0x01010101) });
    constexpr std::size_t lengthOfLink = 4, lengthOfPreview = 7;
    block.resize(block.size() - lengthOfPreview - lengthOfLink - 1);
    EXPECT_TRUE(parse(join(startOfImage, block)));
    EXPECT_THAT(words(), IsEmpty());
}

TEST_F(KXMDExifParserTest, LinkToTheNextDirectoryIsNoEntry)
{
    // It looks like the tag of the preview's offset, and its value follows.
    Bytes const block = exif(
        tiff(TIFF::MM, directory(TIFF::MM, { entry(TIFF::MM, lengthTag, 7) }, offsetTag << 16),
            zeros(4), u32(firstDirectory + directoryLength(1) + 8), text("preview")));
    EXPECT_TRUE(parse(join(startOfImage, block)));
    EXPECT_THAT(words(), IsEmpty());
}

// The preview itself.

TEST_F(KXMDExifParserTest, PreviewThatReachesBeyondTheFileIsNone)
{
    for (std::uint32_t const length : { 8u, 0x7FFFFFFFu, 0xFFFFFFFFu }) {
        EXPECT_TRUE(parse(join(startOfImage,
            blockWithEntries(TIFF::MM,
                { entry(TIFF::MM, offsetTag, afterDirectory(2)),
                    entry(TIFF::MM, lengthTag, length) }))));
        EXPECT_FALSE(parser.thumbnail()) << length;
    }
    EXPECT_TRUE(parse(join(startOfImage,
        blockWithEntries(
            TIFF::MM, { entry(TIFF::MM, offsetTag, 0xFFFFFFFF), entry(TIFF::MM, lengthTag, 1) }))));
    EXPECT_EQ(parser.thumbnailAddress(), 0xFFFFFFFFull + baseAfterStart); // Does not wrap.
    EXPECT_THAT(words(), IsEmpty());
}

TEST_F(KXMDExifParserTest, PreviewThatIsNoPictureIsNoneThoughItWasFound)
{
    auto const data = reader(join(startOfImage,
        exif(tiff(TIFF::MM,
            directory(TIFF::MM,
                { entry(TIFF::MM, offsetTag, afterDirectory(2)), entry(TIFF::MM, lengthTag, 6) }),
            text("letter")))));
    EXPECT_TRUE(parser.parseAbstractData(*data));
    EXPECT_FALSE(parser.thumbnail());
    EXPECT_THAT(words(), ElementsAre("letter"));
    data->setOffset(baseAfterStart + firstDirectory);
    EXPECT_TRUE(parser.readTagsFromData(*data, baseAfterStart, KXSwap::yes));
}

TEST_F(KXMDExifParserTest, PreviewIsKeptWhenALaterFileHasNone)
{
    EXPECT_TRUE(parse(join(startOfImage, blockWithPreview(TIFF::MM))));
    EXPECT_TRUE(parse(join(startOfImage, blockWithEntries(TIFF::MM, {}))));
    EXPECT_EQ(parser.thumbnail(), preview);
    EXPECT_FALSE(parse(text("no photograph")));
    EXPECT_EQ(parser.thumbnail(), preview);
    EXPECT_EQ(parser.thumbnailAddress(), 0u); // Of the later file, which has none.
    EXPECT_EQ(parser.thumbnailLength(), 0u);
    // One that is found but is no picture does replace it.
    EXPECT_TRUE(parse(join(startOfImage,
        blockWithEntries(TIFF::MM,
            { entry(TIFF::MM, offsetTag, afterDirectory(2)), entry(TIFF::MM, lengthTag, 3) }))));
    EXPECT_FALSE(parser.thumbnail());
}

TEST_F(KXMDExifParserTest, DirectoryReadByItselfLooksAtItsFirstEntryBeforeWhatWasFound)
{
    EXPECT_TRUE(parse(join(startOfImage, blockWithPreview(TIFF::MM))));
    // The length is still known from before; the new place replaces the old one.
    auto const data = reader(join(
        directory(TIFF::MM, { entry(TIFF::MM, offsetTag, directoryLength(1)) }), text("another")));
    EXPECT_TRUE(parser.readTagsFromData(*data, 0, KXSwap::yes));
    EXPECT_THAT(words(), ElementsAre("preview", "another"));
}

TEST_F(KXMDExifParserTest, PlatformIsTheProcessWideOneUnlessAnotherIsGiven)
{
    KXPlatform::setShared(platform);
    KXMDExifParser other;
    KXPlatform::setShared(nullptr);
    EXPECT_TRUE(other.parseAbstractData(*reader(join(startOfImage, blockWithPreview(TIFF::MM)))));
    EXPECT_EQ(other.thumbnail(), preview);
}

TEST_F(KXMDExifParserTest, EveryTruncationIsSurvived)
{
    LogCapture const log;
    for (TIFF const order : bothOrders) {
        Bytes const whole = join(startOfImage, jfif(), blockWithPreview(order));
        std::size_t const headerEnd = startOfImage.size() + jfif().size() + 10 + 8;
        for (std::size_t length = 0; length < whole.size(); ++length) {
            KXMDExifParser other(platform);
            auto const part
                = reader(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
            EXPECT_EQ(other.parseAbstractData(*part), length >= headerEnd) << length;
            EXPECT_FALSE(other.thumbnail()) << length;
        }
    }
    EXPECT_THAT(words(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}
