#include "kxmd/mp3/KXMDFileMetaMP3Frame.h"

#include "support/Fields.h"
#include "support/LogCapture.h"
#include "support/PictureHeaders.h"

#include <gmock/gmock.h>

#include <cstring>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto undecodableText
    = "Metadata: KXMetaMP3Frame->frameWithData: Couldn't parse string value";
constexpr auto unreadableIdentifier
    = "Metadata: KXMetaMP3Frame->frameWithData: Couldn't parse frame id";

constexpr KXSize none {};

KXMDFileMetaMP3Frame::Ref parsed(Bytes bytes, ID3 version = ID3::v23)
{
    return KXMDFileMetaMP3Frame::frameWithData(
        *reader(std::move(bytes)), static_cast<std::uint16_t>(version));
}

/// The content of a v2.3 title with this body.
std::optional<std::string> contentOfTitle(Bytes const& body)
{
    return parsed(frame(ID3::v23, "TIT2", body))->content();
}

/// The size of the picture in a v2.3 picture frame with this body.
KXSize coverSize(Bytes const& body)
{
    return parsed(frame(ID3::v23, "APIC", body))->albumCoverSize();
}

/// What a picture frame of v2.3 has before its picture.
Bytes pictureHead(std::uint32_t encoding, std::uint32_t pictureType, Bytes const& description)
{
    return join(u8(encoding), text("image/jpeg"), u8(0), u8(pictureType), description);
}

constexpr KXSize coverOf32By24 { 32, 24 };

}

// Sync-safe sizes.

TEST(KXMDFileMetaMP3Frame, DecodesSyncSafeSizes)
{
    struct {
        Bytes bytes;
        std::uint32_t size;
    } const cases[] {
        { bytes({ 0, 0, 0, 0 }), 0 },
        { bytes({ 0, 0, 2, 1 }), 257 },
        { bytes({ 0x7F, 0x7F, 0x7F, 0x7F }), 0x0FFFFFFF },
        { bytes({ 0xFF, 0xFF, 0xFF, 0xFF }), 0x0FFFFFFF }, // Top bits are ignored.
        { bytes({ 0x80, 0x80, 0x80, 0x81 }), 1 },
        { bytes({ 1, 2, 3, 4 }), 1 << 21 | 2 << 14 | 3 << 7 | 4 },
    };
    for (auto const& [bytes, size] : cases) {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes.data(), sizeof word);
        EXPECT_EQ(KXMDFileMetaMP3Frame::syncSafeSizeToSize(word), size);
    }
}

TEST(KXMDFileMetaMP3Frame, EncodesSyncSafeSizes)
{
    struct {
        std::uint32_t size;
        Bytes bytes;
    } const cases[] {
        { 0, bytes({ 0, 0, 0, 0 }) },
        { 257, bytes({ 0, 0, 2, 1 }) },
        { 0x0FFFFFFF, bytes({ 0x7F, 0x7F, 0x7F, 0x7F }) },
        { 0x10000000, bytes({ 0, 0, 0, 0 }) }, // Does not fit; cut off.
        { 0xFFFFFFFF, bytes({ 0x7F, 0x7F, 0x7F, 0x7F }) },
        { 1 << 21 | 2 << 14 | 3 << 7 | 4, bytes({ 1, 2, 3, 4 }) },
    };
    for (auto const& [size, expected] : cases) {
        std::uint32_t const word = KXMDFileMetaMP3Frame::sizeToSyncSafeSize(size);
        Bytes stored(sizeof word);
        std::memcpy(stored.data(), &word, sizeof word);
        EXPECT_EQ(stored, expected) << size;
    }
}

TEST(KXMDFileMetaMP3Frame, SyncSafeSizesComeBackAsTheyWere)
{
    for (std::uint32_t size = 0; size < 1u << 28; size += 99'991) // A prime, so all bits change.
        ASSERT_EQ(KXMDFileMetaMP3Frame::syncSafeSizeToSize(
                      KXMDFileMetaMP3Frame::sizeToSyncSafeSize(size)),
            size);
}

// Headers.

TEST(KXMDFileMetaMP3Frame, HeaderSizeFollowsTheVersion)
{
    struct {
        std::uint32_t version, headerSize;
    } const cases[] { { 0, 0 }, { 0x00FF, 0 }, { 0x0100, 6 }, { 0x0200, 6 }, { 0x02FF, 6 },
        { 0x0300, 10 }, { 0x0400, 10 }, { 0x0401, 10 }, { 0xFF00, 10 }, { 0x10000, 0 } };
    for (auto const& [version, headerSize] : cases) {
        KXMDFileMetaMP3Frame frame;
        frame.setId3Version(version);
        EXPECT_EQ(frame.headerSize(), headerSize) << version;
    }
}

TEST(KXMDFileMetaMP3Frame, HasTheseFields)
{
    using Frame = KXMDFileMetaMP3Frame;
    expectFields<Frame>({
        field<Frame>("offset", &Frame::offset, &Frame::setOffset, 0, 1),
        field<Frame>("size", &Frame::size, &Frame::setSize, 0, 2),
        field<Frame>("dataSize", &Frame::dataSize, &Frame::setDataSize, 0, 3),
        field<Frame>("tag", &Frame::tag, &Frame::setTag, "", "TIT2"),
        field<Frame>("content", &Frame::content, &Frame::setContent, {}, "Blue"),
        field<Frame>("flags", &Frame::flags, &Frame::setFlags, 0, 4),
        field<Frame>("id3Version", &Frame::id3Version, &Frame::setId3Version, 0, 5),
        field<Frame>(
            "albumCoverSize", &Frame::albumCoverSize, &Frame::setAlbumCoverSize, {}, { 5, 6 }),
    });
}

TEST(KXMDFileMetaMP3Frame, ReadsTheHeaderOfEachVersion)
{
    struct {
        ID3 version;
        Bytes header;
        std::string tag;
        std::uint64_t dataSize, size;
        std::uint16_t flags;
    } const cases[] {
        { ID3::v22, join(text("TCO"), bytes({ 1, 2, 3 })), "TCO", 0x010203, 0x010209, 0 },
        { ID3::v23, join(text("TCON"), bytes({ 0, 0, 2, 1, 0xA0, 0x0B })), "TCON", 513, 523,
            0xA00B },
        { ID3::v24, join(text("TCON"), bytes({ 0, 0, 2, 1, 0x40, 0x08 })), "TCON", 257, 267,
            0x4008 },
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.tag);
        auto const data = reader(join(zeros(5), test.header, zeros(9)));
        data->setOffset(5);
        auto const version
            = static_cast<std::uint16_t>(static_cast<std::uint16_t>(test.version) | 7);
        auto const frame = KXMDFileMetaMP3Frame::frameWithData(*data, version);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->offset(), 5u);
        EXPECT_EQ(frame->tag(), test.tag);
        EXPECT_EQ(frame->dataSize(), test.dataSize);
        EXPECT_EQ(frame->size(), test.size);
        EXPECT_EQ(frame->flags(), test.flags);
        EXPECT_EQ(frame->id3Version(), version); // Revision included.
        EXPECT_FALSE(frame->content());
        EXPECT_EQ(frame->albumCoverSize(), none);
        EXPECT_EQ(data->offset(), 5 + test.size); // The declared end, past the data as well.
    }
}

TEST(KXMDFileMetaMP3Frame, SizeWrapsIn32Bits)
{
    auto const frame = parsed(frameClaiming(ID3::v23, 0xFFFFFFF6, "TCON", zeros(8)));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->dataSize(), 0xFFFFFFF6u);
    EXPECT_EQ(frame->size(), 0u);
}

TEST(KXMDFileMetaMP3Frame, PaddingOrTheEndGivesNoFrameAndNoLogLine)
{
    LogCapture const log;
    for (ID3 const version : { ID3::v22, ID3::v23, ID3::v24 }) {
        EXPECT_FALSE(parsed(zeros(4), version));
        EXPECT_FALSE(parsed(zeros(100), version));
        EXPECT_FALSE(parsed(Bytes(), version));
        EXPECT_FALSE(parsed(text("TT2"), version)); // Four bytes are looked at in version 2.2 too.
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KXMDFileMetaMP3Frame, UnknownVersionGivesNoFrame)
{
    for (int const version : { 0x0000, 0x0100, 0x0500, 0xFF00 }) {
        LogCapture const log;
        EXPECT_FALSE(KXMDFileMetaMP3Frame::frameWithData(
            *reader(textFrame(ID3::v23, "TIT2", "Blue")), static_cast<std::uint16_t>(version)));
        EXPECT_THAT(log.lines(), ElementsAre(unreadableIdentifier)) << version;
    }
}

TEST(KXMDFileMetaMP3Frame, SizeThatIsNotThereIsZero)
{
    for (std::size_t length = 4; length < 8; ++length) {
        auto const frame = parsed(Bytes(length, 'X'));
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->tag(), "XXXX");
        EXPECT_EQ(frame->size(), 10u);
        // The failed read of the size does not move, so the flags are read in its place.
        EXPECT_EQ(frame->flags(), length < 6 ? 0u : 0x5858u);
    }
    for (std::size_t length = 4; length < 6; ++length)
        EXPECT_EQ(parsed(Bytes(length, 'X'), ID3::v22)->size(), 6u);
}

TEST(KXMDFileMetaMP3Frame, FlagsThatAreNotThereAreZero)
{
    for (std::size_t length = 8; length < 10; ++length) {
        auto const frame = parsed(Bytes(length, 'X'));
        EXPECT_EQ(frame->dataSize(), 0x58585858u);
        EXPECT_EQ(frame->flags(), 0u);
    }
}

TEST(KXMDFileMetaMP3Frame, IdentifierIsLatin1AndMayHoldZeros)
{
    EXPECT_EQ(parsed(join(bytes({ 0xA9, 'A', 'B', 'C' }), zeros(6)))->tag(), "\u00A9ABC");
    EXPECT_EQ(parsed(join(bytes({ 0, 0, 0, 1 }), zeros(6)))->tag(), std::string("\0\0\0\1", 4));
}

// Texts.

TEST(KXMDFileMetaMP3Frame, ReadsTheTextOfSevenIdentifiers)
{
    for (std::string_view const tag : { "TAL", "TP1", "TT2" })
        EXPECT_EQ(parsed(textFrame(ID3::v22, tag, "Blue"), ID3::v22)->content(), "Blue") << tag;
    for (std::string_view const tag : { "TALB", "TPE1", "TIT2", "TPE2" }) {
        EXPECT_EQ(parsed(textFrame(ID3::v23, tag, "Blue"))->content(), "Blue") << tag;
        EXPECT_EQ(parsed(textFrame(ID3::v24, tag, "Blue"), ID3::v24)->content(), "Blue") << tag;
    }
}

TEST(KXMDFileMetaMP3Frame, ReadsNoTextOfOtherIdentifiers)
{
    LogCapture const log;
    for (std::string_view const tag : { "TP2", "TCO", "TP3", "COM", "tal" })
        EXPECT_FALSE(parsed(textFrame(ID3::v22, tag, "Blue"), ID3::v22)->content()) << tag;
    for (std::string_view const tag : { "TCON", "TPE3", "TIT1", "TXXX", "COMM", "tit2" })
        EXPECT_FALSE(parsed(textFrame(ID3::v23, tag, "Blue"))->content()) << tag;
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KXMDFileMetaMP3Frame, ReadsTheTextOfIdentifiersThatAreAPartOfTheList)
{
    for (std::string_view const tag : { "ALB", "IT2", "PE2", "L,T", ",TP" })
        EXPECT_EQ(parsed(textFrame(ID3::v22, tag, "Blue"), ID3::v22)->content(), "Blue") << tag;
    for (std::string_view const tag : { "TAL,", "L,TP", ",TT2", "1,TI" })
        EXPECT_EQ(parsed(textFrame(ID3::v23, tag, "Blue"))->content(), "Blue") << tag;
}

TEST(KXMDFileMetaMP3Frame, OnlyEncodingByte1IsUTF16)
{
    EXPECT_EQ(contentOfTitle(join(u8(1), utf16(u"Bl\u00FC\u20AC"))), "Bl\u00FC\u20AC");
    EXPECT_EQ(contentOfTitle(join(u8(1), bytes({ 0xFE, 0xFF }), utf16BigEndian(u"Blue"))), "Blue");
    EXPECT_EQ(contentOfTitle(join(u8(1), utf16BigEndian(u"Blue"))), "Blue");
}

TEST(KXMDFileMetaMP3Frame, EveryOtherEncodingByteIsReadAsLatin1)
{
    for (std::uint32_t const encoding : { 0u, 2u, 3u, 4u, 0xFFu }) {
        EXPECT_EQ(contentOfTitle(join(u8(encoding), bytes({ 'B', 0xFC }))), "B\u00FC");
        EXPECT_EQ(contentOfTitle(join(u8(encoding), text("\u00FC"))), "\u00C3\u00BC");
    }
    // UTF-16 in big-endian order begins with a zero, which ends the text before it has begun.
    LogCapture const log;
    EXPECT_FALSE(contentOfTitle(join(u8(2), utf16BigEndian(u"Blue"))));
    EXPECT_THAT(log.lines(), ElementsAre(undecodableText));
}

TEST(KXMDFileMetaMP3Frame, TextEndsAtItsTerminator)
{
    EXPECT_EQ(contentOfTitle(join(u8(0), text("Blue"), u8(0), text("Red"))), "Blue");
    EXPECT_EQ(contentOfTitle(join(u8(1), utf16(u"Blue"), u16(0), utf16(u"Red"))), "Blue");
    EXPECT_EQ(contentOfTitle(join(u8(1), utf16(u"Blue"), u16(0), u8('x'))), "Blue");
}

TEST(KXMDFileMetaMP3Frame, TextThatIsEmptyOrCannotBeDecodedIsAbsent)
{
    for (Bytes const& body : {
             Bytes(), // Its length wraps to more than any file has.
             u8(0), u8(1), join(u8(0), u8(0)), join(u8(0), u8(0), text("Blue")),
             join(u8(1), utf16(u"")), join(u8(1), utf16(u""), u16(0)),
             join(u8(1), utf16(u"Blue"), u8('x')), // An odd count.
             join(u8(1), bytes({ 0xD8, 0x00 })), // A lone surrogate.
         }) {
        SCOPED_TRACE(testing::PrintToString(body));
        LogCapture const log;
        Bytes const title = frame(ID3::v23, "TIT2", body);
        auto const data = reader(join(title, zeros(50)));
        auto const parsed = KXMDFileMetaMP3Frame::frameWithData(*data, 0x0300);
        ASSERT_TRUE(parsed);
        EXPECT_FALSE(parsed->content());
        EXPECT_EQ(data->offset(), title.size());
        EXPECT_THAT(log.lines(), ElementsAre(undecodableText));
    }
}

TEST(KXMDFileMetaMP3Frame, TextMayTakeAllThatIsLeftOfTheBudget)
{
    Bytes const title = textFrame(ID3::v23, "TIT2", "Blue");
    for (std::uint64_t const left : { 3u, 4u }) {
        LogCapture const log;
        auto const data = reader(title);
        ASSERT_TRUE(data->budget().takeTextBytes(data->budget().textBytes() - left));
        auto const content = KXMDFileMetaMP3Frame::frameWithData(*data, 0x0300)->content();
        EXPECT_EQ(content, left == 4 ? std::optional<std::string>("Blue") : std::nullopt);
    }
}

TEST(KXMDFileMetaMP3Frame, TextFrameAtTheVeryEndHasNoEncodingByteAndNoLogLine)
{
    LogCapture const log;
    EXPECT_FALSE(contentOfTitle({}));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KXMDFileMetaMP3Frame, FrameThatRunsPastTheDataIsReturned)
{
    LogCapture const log;
    auto const data = reader(frameClaiming(ID3::v23, 1000, "TIT2", join(u8(0), text("Blue"))));
    auto const frame = KXMDFileMetaMP3Frame::frameWithData(*data, 0x0300);
    ASSERT_TRUE(frame);
    EXPECT_FALSE(frame->content());
    EXPECT_EQ(frame->size(), 1010u);
    EXPECT_EQ(data->offset(), 1010u);
    EXPECT_FALSE(KXMDFileMetaMP3Frame::frameWithData(*data, 0x0300));
    EXPECT_THAT(log.lines(), ElementsAre(undecodableText));
}

// Pictures.

TEST(KXMDFileMetaMP3Frame, MeasuresThePictureOfEachVersion)
{
    for (ID3 const version : { ID3::v22, ID3::v23, ID3::v24 }) {
        for (Bytes const& picture : { jpeg(32, 24), png(32, 24), gif(32, 24), bmp(32, 24),
                 tiff(32, 24), webp(32, 24), heif(32, 24) }) {
            Bytes const cover = pictureFrame(version, picture);
            auto const data = reader(join(cover, zeros(20)));
            auto const frame
                = KXMDFileMetaMP3Frame::frameWithData(*data, static_cast<std::uint16_t>(version));
            EXPECT_EQ(frame->albumCoverSize(), coverOf32By24);
            EXPECT_FALSE(frame->content());
            EXPECT_EQ(data->offset(), cover.size());
        }
    }
}

TEST(KXMDFileMetaMP3Frame, MeasuresPicturesOfIdentifiersThatAreAPartOfTheList)
{
    Bytes const ofVersion2 = join(u8(0), text("JPG"), u8(0), u8(0), jpeg(32, 24));
    for (std::string_view const tag : { "PIC", "IPC", "API", "C,A", ",AP" })
        EXPECT_EQ(
            parsed(frame(ID3::v22, tag, ofVersion2), ID3::v22)->albumCoverSize(), coverOf32By24);
    Bytes const ofVersion3 = join(pictureHead(0, 0, u8(0)), jpeg(32, 24));
    for (std::string_view const tag : { "APIC", "IPC,", "PC,A", ",API" })
        EXPECT_EQ(parsed(frame(ID3::v23, tag, ofVersion3))->albumCoverSize(), coverOf32By24);
    for (std::string_view const tag : { "PICX", "CPIC", "apic" })
        EXPECT_EQ(parsed(frame(ID3::v23, tag, ofVersion3))->albumCoverSize(), none);
}

TEST(KXMDFileMetaMP3Frame, FormatOfAPictureHasThreeCharactersInVersion2)
{
    auto const sizeOf = [](Bytes const& head) {
        return parsed(frame(ID3::v22, "PIC", join(head, jpeg(32, 24))), ID3::v22)->albumCoverSize();
    };
    EXPECT_EQ(sizeOf(join(u8(0), text("JPG"), u8(0), text("odd"), u8(0))), coverOf32By24);
    EXPECT_EQ(sizeOf(join(u8(0), text("JPG"), u8(3), utf16(u"odd"), u16(0))), coverOf32By24);
    EXPECT_EQ(sizeOf(join(u8(0), text("JPEG"), u8(0), text("odd"), u8(0))), none);
    EXPECT_EQ(sizeOf(join(u8(0), text("JP"), u8(3), utf16(u"odd"), u16(0))), none);
}

TEST(KXMDFileMetaMP3Frame, PictureType0HasALatin1DescriptionWhateverTheEncodingByteSays)
{
    for (std::uint32_t const encoding : { 0u, 1u, 2u, 3u }) {
        EXPECT_EQ(coverSize(join(pictureHead(encoding, 0, join(text("odd"), u8(0))), jpeg(32, 24))),
            coverOf32By24);
        Bytes const wide = join(utf16(u"front"), u16(0));
        EXPECT_EQ(coverSize(join(pictureHead(encoding, 0, wide), jpeg(32, 24))), none);
    }
}

TEST(KXMDFileMetaMP3Frame, OtherPictureTypesHaveAUTF16DescriptionWhateverTheEncodingByteSays)
{
    for (std::uint32_t const encoding : { 0u, 1u, 3u }) {
        for (std::uint32_t const pictureType : { 1u, 3u, 0xFFu }) {
            Bytes const wide = join(utf16(u"front"), u16(0));
            EXPECT_EQ(coverSize(join(pictureHead(encoding, pictureType, wide), jpeg(32, 24))),
                coverOf32By24);
            EXPECT_EQ(coverSize(join(pictureHead(encoding, pictureType, u16(0)), jpeg(32, 24))),
                coverOf32By24);
            EXPECT_EQ(
                coverSize(join(pictureHead(encoding, pictureType, u8(0)), jpeg(32, 24))), none);
        }
    }
}

TEST(KXMDFileMetaMP3Frame, PictureTextsHaveAtMost256BytesWithTheirTerminator)
{
    auto const sizeWith = [](std::size_t formatLength, std::size_t descriptionLength) {
        return coverSize(join(u8(0), filled(formatLength, 'f'), u8(0), u8(0),
            filled(descriptionLength, 'd'), u8(0), jpeg(32, 24)));
    };
    EXPECT_EQ(sizeWith(255, 255), coverOf32By24);
    EXPECT_EQ(sizeWith(256, 0), none);
    EXPECT_EQ(sizeWith(0, 256), none);
}

TEST(KXMDFileMetaMP3Frame, PictureMustLieInsideOfItsFrame)
{
    Bytes const head = pictureHead(0, 0, join(text("description"), u8(0)));
    for (std::size_t size = 0; size <= head.size() + 10; ++size) {
        auto const frame = parsed(frameClaiming(
            ID3::v23, static_cast<std::uint32_t>(size), "APIC", join(head, jpeg(32, 24))));
        EXPECT_EQ(frame->albumCoverSize(), none) << size;
    }
}

TEST(KXMDFileMetaMP3Frame, PictureAfterADescriptionThatLeavesItsFrameIsNotMeasured)
{
    Bytes const head = pictureHead(0, 0, join(text("description"), u8(0)));
    auto const size = static_cast<std::uint32_t>(head.size() - 5);
    Bytes const body = join(head, jpeg(32, 24));
    auto const data = reader(join(frameClaiming(ID3::v23, size, "APIC", body), zeros(5000)));
    EXPECT_EQ(KXMDFileMetaMP3Frame::frameWithData(*data, 0x0300)->albumCoverSize(), none);
}

TEST(KXMDFileMetaMP3Frame, PictureInPlaceOfItsDescriptionIsNotMeasured)
{
    constexpr std::uint32_t wideDescription = 1; // Ends in two zero bytes, which are not there.
    Bytes const frameHeader
        = bytes({ 0xFF, 0xC0, 0, 17, 8, 0, 24, 0, 32, 3, 1, 0x22, 1, 2, 0x11, 1, 3, 0x11, 1 });
    Bytes const picture
        = join(bytes({ 0xFF, 0xD8 }), frameHeader, bytes({ 0xFF, 0xDA }), filled(600, 0x55));
    EXPECT_EQ(coverSize(join(pictureHead(0, wideDescription, u16(0)), picture)), coverOf32By24);
    EXPECT_EQ(coverSize(join(pictureHead(0, wideDescription, {}), picture)), none);
}

TEST(KXMDFileMetaMP3Frame, PictureThatRunsPastTheDataIsNotMeasured)
{
    Bytes const body = join(pictureHead(0, 0, u8(0)), jpeg(32, 24));
    auto const size = static_cast<std::uint32_t>(body.size());
    EXPECT_EQ(parsed(frameClaiming(ID3::v23, size, "APIC", body))->albumCoverSize(), coverOf32By24);
    EXPECT_EQ(parsed(frameClaiming(ID3::v23, size + 1, "APIC", body))->albumCoverSize(), none);
}

TEST(KXMDFileMetaMP3Frame, PicturesThatCannotBeReadAreSilent)
{
    LogCapture const log;
    Bytes const whole = join(pictureHead(0, 0, u8(0)), text("no picture"));
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        Bytes const cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(coverSize(cut), none);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}
