#include "kxmd/platform/KXMediaProbe.h"

#include "kxmd/platform/KXPlatform.h"
#include "support/Builders.h"
#include "support/Fakes.h"
#include "support/Files.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

/// Knows everything: its duration is its length. Fails for lengths of 7 and 8.
class ProbingLoader final : public KXMovieLoader {
public:
    std::unique_ptr<KXMovie> movieWithData(KXAbstractData&) const override { return nullptr; }

    std::optional<KXMediaProbe> mediaProbeWithData(KXAbstractData& data) const override
    {
        KXMediaProbe probe;
        probe.duration = static_cast<double>(data.length());
        if (data.length() == 7)
            throw std::bad_alloc();
        if (data.length() == 8)
            throw std::runtime_error("of a host");
        return probe;
    }
};

class KXMediaProbeTests : public testing::Test {
protected:
    KXPlatform::Ref platform() const
    {
        auto platform = std::make_shared<KXPlatform>(*KXPlatform::platformOfThisMachine());
        platform->movieLoader = std::make_shared<ProbingLoader const>();
        platform->mainQueue = queue;
        return platform;
    }

    std::string fileOfLength(std::size_t length)
    {
        return folder.write(std::to_string(length), build::Bytes(length, 0));
    }

    std::shared_ptr<KXManualQueue> const queue = std::make_shared<KXManualQueue>();
    TemporaryFolder folder;
};

TEST_F(KXMediaProbeTests, FileThatCannotBeReadHasNone)
{
    EXPECT_FALSE(KXMediaProbe::probeWithSourcePath("/nowhere/at all", platform()));
    EXPECT_FALSE(KXMediaProbe::probeWithSourcePath("", platform()));
}

TEST_F(KXMediaProbeTests, LoaderOfMoviesAloneKnowsNone)
{
    auto const data = build::reader({ 1, 2, 3 });
    EXPECT_FALSE(FakeMovieLoader().mediaProbeWithData(*data));
}

TEST_F(KXMediaProbeTests, HandlersAreCalledOnceInOrderOnTheMainQueue)
{
    std::vector<double> answers;
    auto const take = [&answers](std::optional<KXMediaProbe> const& probe) {
        answers.push_back(probe ? probe->duration : -1);
    };
    auto const platform = this->platform();
    KXMediaProbe::probeWithSourcePath(fileOfLength(3), platform, take);
    KXMediaProbe::probeWithSourcePath("/nowhere", platform, take);
    KXMediaProbe::probeWithSourcePath(fileOfLength(5), platform, nullptr);
    KXMediaProbe::probeWithSourcePath(fileOfLength(7), platform, take); // Runs out of memory.
    KXMediaProbe::probeWithSourcePath(fileOfLength(8), platform, take);
    KXMediaProbe::probeWithSourcePath(fileOfLength(2), platform, take);
    EXPECT_TRUE(answers.empty());
    while (answers.size() < 5)
        queue->waitAndRunAll();
    EXPECT_EQ(answers, (std::vector<double> { 3, -1, -1, -1, 2 }));
    EXPECT_EQ(queue->waiting(), 0u);
}

TEST_F(KXMediaProbeTests, WithoutAPlatformTheSharedOneIsAsked)
{
    KXPlatform::setShared(platform());
    auto const probe = KXMediaProbe::probeWithSourcePath(fileOfLength(3));
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->duration, 3);
    double answer = 0;
    KXMediaProbe::probeWithSourcePath(
        fileOfLength(5), nullptr, [&answer](auto const& found) { answer = found->duration; });
    KXPlatform::setShared(nullptr);
    queue->waitAndRunAll();
    EXPECT_EQ(answer, 5);
}

TEST_F(KXMediaProbeTests, FileThatCouldNotBeLookedIntoIsLogged)
{
    LogCapture const log;
    KXMediaProbe::probeWithSourcePath(fileOfLength(7), platform(), nullptr);
    queue->waitAndRunAll();
    EXPECT_EQ(log.lines(),
        std::vector<std::string> { "Metadata: KXMediaProbe->a file could not be looked into" });
}

}
