#include "kxmd/base/KXBigEndianPrivate.h"

#include <gtest/gtest.h>

#include <array>

TEST(KXBigEndian, MostSignificantByteComesFirst)
{
    constexpr std::array<std::uint8_t, 4> bytes { 0x81, 0x02, 0x03, 0xF4 };
    EXPECT_EQ(bigEndian32(bytes), 0x810203F4u);
    static_assert(bigEndian32(std::array<std::uint8_t, 4> { 0, 0, 0, 1 }) == 1);
}
