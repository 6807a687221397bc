// Where the picture of a picture frame is found, by the standards.

#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "support/CoverTest.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Text encodings; UTF-16 with a byte-order mark and without.
constexpr std::uint32_t latin1 = 0, marked = 1, markless = 2, utf8 = 3;
constexpr std::uint32_t other = 0, frontCover = 3, backCover = 4;

Bytes const noDescription = zeros(1);
Bytes const wideDescription = join(bytes({ 0xFF, 0xFE }), text(std::string_view("A\0b\0", 4)));

/// The body of a picture frame of ID3v2.3 and 2.4.
Bytes body(std::uint32_t encoding, std::string_view mime, std::uint32_t type,
    Bytes const& description, Bytes const& picture)
{
    return join(u8(encoding), text(mime), zeros(1), u8(type), description, picture);
}

Bytes front(Bytes const& picture)
{
    return body(latin1, "image/jpeg", frontCover, noDescription, picture);
}

}

class KXMP3PictureTest : public CoverTest {
protected:
    /// The words that the picture library was given of a tag with these frames.
    std::vector<std::string> picturesIn(ID3 version, Bytes const& frames) const
    {
        LogCapture const log;
        auto const before = machine.pictureLoader->calls().size();
        auto const file = join(tag(version, frames), text("music"));
        KXMDFileMetaMP3 meta;
        EXPECT_TRUE(meta.parseAbstractData(*reader(file)));
        EXPECT_EQ(meta.albumCoverFromData(*reader(file)), nullptr);
        std::vector<std::string> words;
        auto const calls = machine.pictureLoader->calls();
        for (auto i = before; i < calls.size(); ++i)
            words.push_back(calls[i].word);
        return words;
    }

    std::vector<std::string> pictureIn(ID3 version, Bytes const& frameBody, std::uint32_t flags = 0)
    {
        return picturesIn(version, frame(version, "APIC", frameBody, flags));
    }
};

TEST_F(KXMP3PictureTest, ZeroBytesStayWithoutTheFlagForThem)
{
    Bytes const picture = join(bytes({ 0xFF, 0, 0xFF, 0 }), text("end"));
    std::string const word = std::string("\xFF\0\xFF\0", 4) + "end";
    EXPECT_THAT(picturesIn(ID3::v22,
                    frame(ID3::v22, "PIC",
                        join(u8(latin1), text("JPG"), u8(frontCover), noDescription, picture))),
        ElementsAre(word));
    for (ID3 const version : { ID3::v23, ID3::v24 })
        EXPECT_THAT(pictureIn(version, front(picture)), ElementsAre(word));
}

TEST_F(KXMP3PictureTest, PictureMayEndWithTheFile)
{
    Bytes const file = tag(ID3::v23, frame(ID3::v23, "APIC", front(text("picture"))));
    KXMDFileMetaMP3 meta;
    EXPECT_TRUE(meta.parseAbstractData(*reader(file)));
    std::size_t const padding = 10;
    for (std::size_t const lost : { padding, padding + 1 }) {
        auto const before = machine.pictureLoader->calls().size();
        EXPECT_EQ(meta.albumCoverFromData(
                      *reader(Bytes(file.begin(), file.end() - static_cast<std::ptrdiff_t>(lost)))),
            nullptr);
        EXPECT_EQ(machine.pictureLoader->calls().size() - before, lost == padding ? 1u : 0u);
    }
}

TEST_F(KXMP3PictureTest, DescriptionEndsByTheTextEncodingWhateverThePictureType)
{
    Bytes const picture = text("picture");
    for (ID3 const version : { ID3::v23, ID3::v24 }) {
        for (std::uint32_t const type : { other, frontCover, 20u }) {
            for (std::uint32_t const encoding : { latin1, utf8 }) {
                for (Bytes const& description :
                    { noDescription, text(std::string("Caf\xC3\xA9\0", 6)) })
                    EXPECT_THAT(
                        pictureIn(version, body(encoding, "image/png", type, description, picture)),
                        ElementsAre("picture"));
            }
            for (std::uint32_t const encoding : { marked, markless }) {
                for (Bytes const& description : { zeros(2), join(wideDescription, zeros(2)),
                         join(text(std::string("\0A\0\0", 4))) })
                    EXPECT_THAT(
                        pictureIn(version, body(encoding, "image/png", type, description, picture)),
                        ElementsAre("picture"));
            }
        }
    }
}

TEST_F(KXMP3PictureTest, ShortFormatHasThreeLettersAndNoTerminator)
{
    for (std::uint32_t const type : { other, frontCover }) {
        Bytes const narrow
            = join(u8(latin1), text("JPG"), u8(type), noDescription, text("picture"));
        Bytes const wide
            = join(u8(marked), text("PNG"), u8(type), wideDescription, zeros(2), text("picture"));
        EXPECT_THAT(picturesIn(ID3::v22, frame(ID3::v22, "PIC", narrow)), ElementsAre("picture"));
        EXPECT_THAT(picturesIn(ID3::v22, frame(ID3::v22, "PIC", wide)), ElementsAre("picture"));
    }
}

TEST_F(KXMP3PictureTest, ShortFormatIsThatOfEveryRevision)
{
    auto const file = tagClaiming(0x0201, 0, 100,
        join(frame(ID3::v22, "PIC",
                 join(u8(latin1), text("JPG"), u8(frontCover), noDescription, text("picture"))),
            zeros(100)));
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(meta.parseAbstractData(*reader(file)));
    EXPECT_EQ(meta.albumCoverFromData(*reader(file)), nullptr);
    EXPECT_EQ(machine.pictureLoader->calls().back().word, "picture");
}

TEST_F(KXMP3PictureTest, FramesThatCannotBeReadHideNoOthers)
{
    constexpr std::uint32_t encrypted = 0x40;
    EXPECT_THAT(picturesIn(ID3::v23,
                    join(frame(ID3::v23, "APIC", front(text("secret")), encrypted),
                        frame(ID3::v23, "APIC", front(text("picture"))))),
        ElementsAre("picture"));
}

TEST_F(KXMP3PictureTest, LongTextsAreNoHindrance)
{
    std::string const longText(1000, 'x');
    Bytes const description = join(text(longText), zeros(1));
    EXPECT_THAT(
        pictureIn(ID3::v23, body(latin1, longText, frontCover, description, text("picture"))),
        ElementsAre("picture"));
}

TEST_F(KXMP3PictureTest, FrontCoversComeBeforeAllOthers)
{
    auto const frameOf = [](std::uint32_t type, std::string_view word) {
        return frame(ID3::v24, "APIC", body(latin1, "image/jpeg", type, noDescription, text(word)));
    };
    EXPECT_THAT(picturesIn(ID3::v24,
                    join(frameOf(backCover, "back"), frameOf(frontCover, "front"),
                        frameOf(other, "icon"), frameOf(frontCover, "second"))),
        ElementsAre("front", "second", "back", "icon"));
}

TEST_F(KXMP3PictureTest, TheFirstThatDecodesIsTheCover)
{
    auto const frameOf = [](std::uint32_t type, std::string_view word) {
        return frame(ID3::v23, "APIC", body(latin1, "image/jpeg", type, noDescription, text(word)));
    };
    auto const image = pictures::solid(3, 3, pictures::green);
    machine.pictureLoader->setImageForWord(image, "second");
    machine.pictureLoader->setImageForWord(pictures::solid(3, 3, pictures::red), "back");
    auto const file = tag(ID3::v23,
        join(frameOf(backCover, "back"), frameOf(frontCover, "first"),
            frameOf(frontCover, "second")));
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(meta.parseAbstractData(*reader(file)));
    EXPECT_EQ(meta.albumCoverFromData(*reader(file)), image);
}

TEST_F(KXMP3PictureTest, PicturesElsewhereAreNotShown)
{
    EXPECT_THAT(
        pictureIn(ID3::v23, body(latin1, "-->", frontCover, noDescription, text("http://a"))),
        IsEmpty());
    Bytes const shortLink
        = join(u8(latin1), text("-->"), u8(frontCover), noDescription, text("http://a"));
    EXPECT_THAT(picturesIn(ID3::v22, frame(ID3::v22, "PIC", shortLink)), IsEmpty());
}

TEST_F(KXMP3PictureTest, FramesThatEndTooSoonHoldNoPicture)
{
    Bytes const whole = front(text("p"));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        Bytes const cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_THAT(pictureIn(ID3::v23, cut), IsEmpty()) << length;
    }
    Bytes const wide = body(marked, "image/png", frontCover, join(wideDescription, zeros(1)), {});
    EXPECT_THAT(pictureIn(ID3::v23, wide), IsEmpty()) << "Half a terminator.";
}

TEST_F(KXMP3PictureTest, FlagsOfVersion3AddToTheHeader)
{
    constexpr std::uint32_t compressed = 0x80, encrypted = 0x40, grouped = 0x20;
    EXPECT_THAT(
        pictureIn(ID3::v23, join(u8(7), front(text("picture"))), grouped), ElementsAre("picture"));
    EXPECT_THAT(pictureIn(ID3::v23, join(u32(9), front(text("picture"))), compressed), IsEmpty());
    EXPECT_THAT(pictureIn(ID3::v23, join(u8(1), front(text("picture"))), encrypted), IsEmpty());
}

TEST_F(KXMP3PictureTest, OtherFlagsAddNothing)
{
    constexpr std::uint32_t known3 = 0x80 | 0x40 | 0x20, known4 = 0x40 | 0x08 | 0x04 | 0x02 | 0x01;
    for (auto const& [version, known] : { std::pair(ID3::v23, known3), { ID3::v24, known4 } }) {
        for (std::uint32_t flag = 1; flag <= 0x8000; flag <<= 1) {
            if (flag & known)
                continue;
            EXPECT_THAT(pictureIn(version, front(text("picture")), flag), ElementsAre("picture"))
                << flag;
        }
    }
}

TEST_F(KXMP3PictureTest, FlagsOfVersion4AddToTheHeader)
{
    constexpr std::uint32_t grouped = 0x40, compressed = 0x08, encrypted = 0x04,
                            unsynchronised = 0x02, hasLengthIndicator = 0x01;
    Bytes const picture = front(text("picture"));
    EXPECT_THAT(pictureIn(ID3::v24, join(u8(7), picture), grouped), ElementsAre("picture"));
    EXPECT_THAT(
        pictureIn(ID3::v24, join(u32(99), picture), hasLengthIndicator), ElementsAre("picture"));
    EXPECT_THAT(pictureIn(ID3::v24, join(u8(7), u32(99), picture), grouped | hasLengthIndicator),
        ElementsAre("picture"));
    EXPECT_THAT(pictureIn(ID3::v24, picture, compressed), IsEmpty());
    EXPECT_THAT(pictureIn(ID3::v24, picture, encrypted), IsEmpty());
    Bytes const described
        = body(marked, "image/png", frontCover, join(wideDescription, zeros(2)), text("picture"));
    EXPECT_THAT(pictureIn(ID3::v24, join(u8(7), described), grouped), ElementsAre("picture"));

    Bytes const pictureBytes = bytes({ 0xFF, 0x00, 0xD8, 0xFF, 0x00, 0x00, 0xFF, 'x', 0xFF });
    Bytes const wide = body(marked, "image/png", frontCover,
        join(bytes({ 0xFF, 0x00, 0xFE }), text(std::string_view("A\0", 2)), zeros(2)),
        pictureBytes);
    Bytes const expected = bytes({ 0xFF, 0xD8, 0xFF, 0x00, 0xFF, 'x', 0xFF });
    EXPECT_THAT(pictureIn(ID3::v24, wide, unsynchronised),
        ElementsAre(std::string(expected.begin(), expected.end())));
    EXPECT_THAT(pictureIn(ID3::v24, join(u32(99), wide), unsynchronised | hasLengthIndicator),
        ElementsAre(std::string(expected.begin(), expected.end())));
}

TEST_F(KXMP3PictureTest, FrameThatRunsPastTheFileHoldsNoPicture)
{
    for (std::uint32_t const size : { 3000u, 0xFFFFFFF0u }) {
        Bytes const frames = frameClaiming(ID3::v23, size, "APIC", front(text("picture")));
        EXPECT_THAT(picturesIn(ID3::v23, frames), IsEmpty());
    }
}

TEST_F(KXMP3PictureTest, JudgementKeepsToItsOwnRule)
{
    // A front cover with a narrow description: found and shown, but not measured.
    auto const file = tag(ID3::v23, frame(ID3::v23, "APIC", front(jpeg(300, 300, 400))));
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(meta.parseAbstractData(*reader(file)));
    EXPECT_FALSE(meta.hasValidAlbumCover());
    static_cast<void>(meta.albumCoverFromData(*reader(file)));
    EXPECT_EQ(machine.pictureLoader->calls().size(), 1u);
}
