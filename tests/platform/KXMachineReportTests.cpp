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
