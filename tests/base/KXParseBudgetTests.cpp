#include "kxmd/base/KXParseBudget.h"

#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

constexpr std::uint64_t million = 1ull << 20;

}

TEST(KXParseBudget, HasAMillionNodesAndLogsTheFirstRefusalOnly)
{
    LogCapture const log;
    KXParseBudget budget;
    for (std::uint64_t i = 0; i < million; ++i)
        ASSERT_TRUE(budget.takeNode("no more"));
    EXPECT_THAT(log.lines(), testing::IsEmpty());
    EXPECT_FALSE(budget.takeNode("no more"));
    EXPECT_THAT(log.lines(), testing::SizeIs(1));
    EXPECT_FALSE(budget.takeNode("no more"));
    EXPECT_THAT(log.lines(), testing::ElementsAre("Metadata: no more"));
}

TEST(KXParseBudget, HasAMillionStepsThroughHeaders)
{
    KXParseBudget budget;
    for (std::uint64_t i = 0; i < million; ++i)
        ASSERT_TRUE(budget.takeStep());
    EXPECT_FALSE(budget.takeStep());
    EXPECT_EQ(budget.stepsLeft(), 0u);
}

TEST(KXParseBudget, GrantsTextWholeOrNotAtAll)
{
    KXParseBudget budget;
    EXPECT_TRUE(budget.takeTextBytes(64 * million - 1));
    EXPECT_FALSE(budget.takeTextBytes(2));
    EXPECT_TRUE(budget.takeTextBytes(1));
    EXPECT_FALSE(budget.takeTextBytes(1));
    EXPECT_TRUE(budget.takeTextBytes(0));
}
