#include "kxmd/platform/KXMachineReport.h"

#include "support/Renders.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sys/prctl.h>

using testing::IsSupersetOf;

TEST(KXMachineReport, TellsWhatIsDecoded)
{
    auto const report = KXMachineReport::reportOfThisMachine();
    EXPECT_TRUE(report.pictures.isThere);
    EXPECT_THAT(
        report.pictures.formats, IsSupersetOf({ "gif", "jpeg", "png", "svg", "tiff", "webp" }));
    EXPECT_TRUE(std::ranges::is_sorted(report.pictures.formats));
    for (auto const& name : report.pictures.formats)
        EXPECT_EQ(name.find(' '), name.npos) << name;
    EXPECT_EQ(report, KXMachineReport::reportOfThisMachine());
}

TEST(KXMachineReport, TellsHowDecodersAreConfined)
{
    auto const report = KXMachineReport::reportOfThisMachine();
    EXPECT_EQ(report.pictures.isConfinedToReading, isConfinementThere());
    EXPECT_EQ(report.pictures.isConfinedToComputing, ::prctl(PR_GET_SECCOMP) >= 0);
}

TEST(KXMachineReport, DecoderIsConfinedByBothMeans)
{
    KXMachineReport::Decoder const unknown;
    EXPECT_FALSE(unknown.isThere || unknown.isConfinedToReading || unknown.isConfinedToComputing);
    for (int number = 0; number < 8; ++number) {
        KXMachineReport::Decoder const decoder { .isThere = (number & 1) != 0,
            .isConfinedToReading = (number & 2) != 0,
            .isConfinedToComputing = (number & 4) != 0,
            .formats = {} };
        EXPECT_EQ(decoder.isConfined(), number == 7) << number;
    }
}
