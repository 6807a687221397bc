#include "kxmd/image/KXPictureReaderPrivate.h"

#include "support/Builders.h"

#include <gtest/gtest.h>

#include <array>

using namespace build;

namespace {

/// Bytes 1 to 9, of which the picture has 3 to 7.
KXAbstractData::Ref dataAtPicture()
{
    auto data = reader(bytes({ 1, 2, 3, 4, 5, 6, 7, 8, 9 }));
    data->setOffset(2);
    return data;
}

constexpr std::uint64_t pictureLength = 5;

/// Has lost the bytes that it says it has, as a file that was cut off meanwhile.
class CutOffData final : public KXAbstractData {
public:
    std::uint64_t length() const override { return pictureLength; }

private:
    std::uint8_t const* bytesAt(std::uint64_t, std::size_t) override { return nullptr; }
    std::uint64_t copyBytesAt(std::uint64_t, std::uint8_t*, std::uint64_t) override { return 0; }
};

}

TEST(KXPictureReader, ReadsNumbersInBothOrders)
{
    auto const data = dataAtPicture();
    KXPictureReader picture(*data, pictureLength);
    std::uint8_t byte;
    std::uint16_t word;
    std::uint32_t number;
    EXPECT_TRUE(picture.readUInt8To(byte));
    EXPECT_EQ(byte, 3);
    EXPECT_TRUE(picture.readUInt16To(word, KXSwap::yes));
    EXPECT_EQ(word, 0x0405);
    EXPECT_TRUE(picture.readUInt16To(word, KXSwap::no));
    EXPECT_EQ(word, 0x0706);
    EXPECT_EQ(picture.position(), pictureLength);
    EXPECT_TRUE(picture.setPosition(1));
    EXPECT_TRUE(picture.readUInt32To(number, KXSwap::yes));
    EXPECT_EQ(number, 0x04050607u);
}

TEST(KXPictureReader, ReadsNothingPastTheEnd)
{
    auto const data = dataAtPicture();
    KXPictureReader picture(*data, pictureLength);
    std::uint8_t byte = 1;
    std::uint16_t word = 1;
    std::uint32_t number = 1;
    std::array<std::uint8_t, 2> two {};
    EXPECT_TRUE(picture.setPosition(2));
    EXPECT_FALSE(picture.readUInt32To(number, KXSwap::yes));
    EXPECT_EQ(number, 0u);
    EXPECT_TRUE(picture.setPosition(4));
    EXPECT_FALSE(picture.readUInt16To(word, KXSwap::yes));
    EXPECT_EQ(word, 0);
    EXPECT_FALSE(picture.readBytesTo(two));
    EXPECT_EQ(picture.position(), 4u);
    EXPECT_TRUE(picture.skipBytes(1));
    EXPECT_FALSE(picture.readUInt8To(byte));
    EXPECT_EQ(byte, 0);
    EXPECT_EQ(picture.remainingLength(), 0u);
}

TEST(KXPictureReader, ReadsBytes)
{
    auto const data = dataAtPicture();
    KXPictureReader picture(*data, pictureLength);
    std::array<std::uint8_t, 2> two {};
    EXPECT_TRUE(picture.skipBytes(3));
    EXPECT_TRUE(picture.readBytesTo(two));
    EXPECT_EQ(two, (std::array<std::uint8_t, 2> { 6, 7 }));
    EXPECT_EQ(picture.position(), pictureLength);
}

TEST(KXPictureReader, ReadsThatFailBelowMoveNothing)
{
    CutOffData data;
    KXPictureReader picture(data, pictureLength);
    std::uint8_t byte = 1;
    std::uint16_t word = 1;
    std::uint32_t number = 1;
    std::array<std::uint8_t, 2> two {};
    EXPECT_FALSE(picture.readUInt8To(byte));
    EXPECT_FALSE(picture.readUInt16To(word, KXSwap::no));
    EXPECT_FALSE(picture.readUInt32To(number, KXSwap::yes));
    EXPECT_FALSE(picture.readBytesTo(two));
    EXPECT_EQ(byte + word + number, 0u);
    EXPECT_EQ(picture.position(), 0u);
}

TEST(KXPictureReader, MovesWithinThePicture)
{
    auto const data = dataAtPicture();
    KXPictureReader picture(*data, pictureLength);
    EXPECT_TRUE(picture.setPosition(pictureLength));
    EXPECT_FALSE(picture.setPosition(pictureLength + 1));
    EXPECT_FALSE(picture.setPosition(~std::uint64_t { 0 }));
    EXPECT_EQ(picture.position(), pictureLength);
    EXPECT_TRUE(picture.setPosition(1));
    EXPECT_FALSE(picture.skipBytes(pictureLength));
    EXPECT_FALSE(picture.skipBytes(~std::uint64_t { 0 })); // Would wrap to 0.
    EXPECT_EQ(picture.position(), 1u);
    EXPECT_TRUE(picture.skipBytes(4));
    EXPECT_EQ(picture.position(), pictureLength);
}

TEST(KXPictureReader, PartsEndWhereTheyEnd)
{
    auto const data = dataAtPicture();
    KXPictureReader picture(*data, pictureLength);
    std::uint8_t byte;
    std::uint16_t word;
    EXPECT_TRUE(picture.skipBytes(1));
    auto part = picture.readPart(3);
    ASSERT_TRUE(part);
    EXPECT_EQ(picture.position(), 4u);
    EXPECT_EQ(part->position(), 0u);
    EXPECT_EQ(part->remainingLength(), 3u);
    EXPECT_TRUE(part->readUInt16To(word, KXSwap::yes));
    EXPECT_EQ(word, 0x0405);
    // Each of them has a position of its own.
    EXPECT_TRUE(picture.readUInt8To(byte));
    EXPECT_EQ(byte, 7);
    EXPECT_FALSE(part->readUInt16To(word, KXSwap::yes));
    EXPECT_TRUE(part->readUInt8To(byte));
    EXPECT_EQ(byte, 6);
    EXPECT_FALSE(part->readUInt8To(byte));
}

TEST(KXPictureReader, PartThatIsNotThereIsAbsent)
{
    auto const data = dataAtPicture();
    KXPictureReader picture(*data, pictureLength);
    EXPECT_TRUE(picture.skipBytes(1));
    EXPECT_FALSE(picture.readPart(5));
    EXPECT_FALSE(picture.readPart(~std::uint64_t { 0 }));
    EXPECT_EQ(picture.position(), 1u);
    auto const empty = picture.readPart(0);
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->remainingLength(), 0u);
}

TEST(KXPictureReader, StepsComeFromTheBudgetOfTheReaderBelow)
{
    auto const data = dataAtPicture();
    KXPictureReader picture(*data, pictureLength);
    auto const before = data->budget().stepsLeft();
    EXPECT_TRUE(picture.takeStep());
    EXPECT_EQ(data->budget().stepsLeft(), before - 1);
    while (data->budget().takeStep()) { }
    EXPECT_FALSE(picture.takeStep());
}

TEST(KXPictureReader, CodesAreReadMostSignificantByteFirst)
{
    auto const data = reader(bytes({ 'i', 's', 'p', 'e', 0xFF, 0, 1, 0x80, 'x' }));
    KXPictureReader picture(*data, 9);
    KXFourCharacterCode code;
    EXPECT_TRUE(picture.readCodeTo(code));
    EXPECT_EQ(code, KXFourCharacterCode("ispe"));
    EXPECT_TRUE(picture.readCodeTo(code));
    EXPECT_EQ(code.value(), 0xFF000180u);
    EXPECT_FALSE(picture.readCodeTo(code));
    EXPECT_TRUE(code.isNone());
    EXPECT_EQ(picture.position(), 8u);
}
