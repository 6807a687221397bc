#include "examples/browser/PictureLoader.h"

#include "support/Fakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

namespace {

class PictureLoaderTest : public testing::Test {
protected:
    PictureLoaderTest()
    {
        machine.thumbnailService->setImageForPath(KXImage::imageWithSize({ 8, 8 }), "/a.png");
    }

    static KXDCFile::Ref file(std::string const& path)
    {
        return std::make_shared<KXDCSimpleFile>(path);
    }

    void waitUntilIdle()
    {
        while (!loader->isIdle())
            machine.mainQueue->waitAndRunAll();
    }

    std::vector<std::string> askedPaths() const
    {
        std::vector<std::string> paths;
        for (auto const& call : machine.thumbnailService->calls())
            paths.push_back(call.path);
        return paths;
    }

    FakeMachine machine;
    std::vector<std::string> came; // With a star where there is a picture.
    int iconsCame { 0 };
    PictureLoader::Ref loader = PictureLoader::create(machine.platform(), 8,
        { .pictureCame =
                [this](auto const& file, auto const& picture) {
                    came.push_back(file->sourcePath() + (picture ? "*" : ""));
                },
            .iconCame = [this] { ++iconsCame; } });
};

TEST_F(PictureLoaderTest, PicturesComeInOrder)
{
    loader->setWanted({ file("/a.png"), file("/b.png"), file("/c.png") });
    waitUntilIdle();
    EXPECT_THAT(came, ElementsAre("/a.png*", "/b.png", "/c.png"));
    EXPECT_EQ(loader->counts().asked, 3U);
}

TEST_F(PictureLoaderTest, WhatWasScrolledAwayIsNeverAskedFor)
{
    loader->setWanted({ file("/a.png"), file("/b.png"), file("/c.png"), file("/d.png") });
    loader->setWanted({ file("/x.png"), file("/y.png") });
    waitUntilIdle();
    EXPECT_THAT(askedPaths(), ElementsAre("/a.png", "/b.png", "/x.png", "/y.png"));
    EXPECT_EQ(loader->counts().mostInFlight, PictureLoader::inFlightAtOnce);
    EXPECT_EQ(loader->counts().mostWanted, 4U);
}

TEST_F(PictureLoaderTest, WhatIsInFlightIsNotAskedForAgain)
{
    Files const files { file("/a.png"), file("/b.png"), file("/c.png") };
    loader->setWanted(files);
    loader->setWanted(files);
    waitUntilIdle();
    EXPECT_THAT(came, ElementsAre("/a.png*", "/b.png", "/c.png"));
}

TEST_F(PictureLoaderTest, CachedPictureComesAtOnce)
{
    loader->setWanted({ file("/a.png") });
    waitUntilIdle();
    loader->setWanted({ file("/a.png") });
    EXPECT_THAT(came, ElementsAre("/a.png*", "/a.png*"));
    EXPECT_TRUE(loader->isIdle());
}

TEST_F(PictureLoaderTest, NothingComesAfterTheEnd)
{
    loader->setWanted({ file("/a.png"), file("/b.png") });
    auto const wanted = loader->iconForFile(file("/a.png"));
    loader = nullptr;
    machine.mainQueue->waitAndRunAll();
    EXPECT_THAT(came, ElementsAre());
    EXPECT_EQ(iconsCame, 0);
}

TEST_F(PictureLoaderTest, IconIsMadeOnceForEachType)
{
    EXPECT_EQ(loader->iconForFile(file("/a.png")), nullptr);
    EXPECT_EQ(loader->iconForFile(file("/b.png")), nullptr);
    EXPECT_EQ(loader->iconForFile(file("/c.mp3")), nullptr);
    waitUntilIdle();
    EXPECT_EQ(iconsCame, 2);
    EXPECT_NE(loader->iconForFile(file("/b.png")), nullptr);
    std::vector<std::string> types;
    for (auto const& call : machine.iconProvider->calls())
        types.push_back(call.fileType);
    EXPECT_THAT(types, UnorderedElementsAre("png", "mp3"));
}

}
