#include "kxmd/image/KXResamplerPrivate.h"

#include <gtest/gtest.h>

#include <limits>

TEST(KXResamplerAxis, DrawsToThePixelsThatAreCoveredAndToNoOthers)
{
    constexpr std::size_t targetPixels = 4;
    struct {
        double into, intoLength;
        std::size_t firstTarget;
        std::vector<float> coverages;
    } const cases[] {
        { 0, 4, 0, { 1, 1, 1, 1 } },
        { 1, 2, 1, { 1, 1 } },
        { 0.5, 1, 0, { 0.5, 0.5 } },
        { 1.25, 0.5, 1, { 0.5 } },
        { -3, 4, 0, { 1 } },
        { 3, 9, 3, { 1 } },
        { -1, 1, 0, {} },
        { 4, 1, 0, {} },
    };
    for (auto const& [into, intoLength, firstTarget, coverages] : cases) {
        SCOPED_TRACE(testing::Message() << into << ", " << intoLength);
        KXResamplerAxis const axis(0, 8, 8, into, intoLength, targetPixels);
        EXPECT_EQ(axis.firstTarget(), firstTarget);
        ASSERT_EQ(axis.targetCount(), coverages.size());
        for (std::size_t i = 0; i < coverages.size(); ++i)
            EXPECT_EQ(axis.target(i).coverage, coverages[i]);
    }
}

TEST(KXResamplerAxis, NeedsNoPixelsWhereNothingIsDrawn)
{
    constexpr double endless = std::numeric_limits<double>::infinity();
    for (double const fromLength : { 0.0, -1.0, endless, -endless }) {
        KXResamplerAxis const axis(2, fromLength, 8, 0, 4, 4);
        EXPECT_EQ(axis.targetCount(), 0u);
        EXPECT_EQ(axis.firstSource(), 0u);
        EXPECT_EQ(axis.sourceCount(), 0u);
    }
}

TEST(KXResamplerAxis, NeedsThePixelsOfItsIntervalAndNoOthers)
{
    struct {
        double from, fromLength;
        std::size_t firstSource, sourceCount;
    } const cases[] {
        { 0, 8, 0, 8 },
        { 2, 3, 2, 3 },
        { 2.5, 3, 2, 4 },
        { 7, 1, 7, 1 },
        { 6, 9, 6, 2 },
        { -5, 6, 0, 1 },
    };
    for (auto const& [from, fromLength, firstSource, sourceCount] : cases) {
        SCOPED_TRACE(testing::Message() << from << ", " << fromLength);
        KXResamplerAxis const axis(from, fromLength, 8, 0, 4, 4);
        EXPECT_EQ(axis.firstSource(), firstSource);
        EXPECT_EQ(axis.sourceCount(), sourceCount);
    }
}
