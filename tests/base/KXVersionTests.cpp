#include <gtest/gtest.h>

#include <cstdio>
#include <kxmd/version.h>

TEST(KXVersion, HasTwoDigitsOfItsNumberForEachPartOfItsText)
{
    int major = 0, minor = 0, patch = 0;
    ASSERT_EQ(std::sscanf(KXVersion(), "%d.%d.%d", &major, &minor, &patch), 3);
    EXPECT_EQ(KXVersionNumber(), major * 10000 + minor * 100 + patch);
}
