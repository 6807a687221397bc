#include "support/ThumbnailTest.h"

#include <atomic>
#include <latch>
#include <new>
#include <stdexcept>
#include <thread>

using namespace pictures;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;

namespace {

constexpr KXSize size50 { 50, 50 };

class KXMDThumbnailHandler : public ThumbnailTest { };

}

TEST_F(KXMDThumbnailHandler, IsCalledOnceWithThePictureOfAPath)
{
    coloured("/x", green);
    Received received;
    EXPECT_FALSE(controller->thumbnailForPath("/x", size50, into(received)));
    finish();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0], controller->thumbnailForPath("/x", size50));
    EXPECT_EQ(countOf(*received[0], green), 2500u);
    EXPECT_THAT(rendered(), ElementsAre("/x"));
}

TEST_F(KXMDThumbnailHandler, IsCalledOnceWithThePictureOfAFile)
{
    Received received;
    EXPECT_FALSE(controller->thumbnailForFile(coloured("/x", green), size50, into(received)));
    finish();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0], controller->thumbnailForPath("/x", size50));
}

TEST_F(KXMDThumbnailHandler, IsNeverCalledForACachedPicture)
{
    auto const file = coloured("/x", green);
    auto const image = controller->thumbnailForPath("/x", size50);
    Received received;
    EXPECT_EQ(controller->thumbnailForPath("/x", size50, into(received)), image);
    EXPECT_EQ(controller->thumbnailForFile(file, size50, into(received)), image);
    finish();
    EXPECT_THAT(received, IsEmpty());
    EXPECT_THAT(rendered(), ElementsAre("/x"));
}

TEST_F(KXMDThumbnailHandler, IsCalledForATrackWhoseAlbumHasNoPicture)
{
    // Its own picture is in the cache, but under the name of its path.
    coloured("/1.mp3", red);
    auto const file = track("/1.mp3", "A", "B");
    auto const image = controller->thumbnailForFile(*file, size50);
    Received received;
    EXPECT_FALSE(controller->thumbnailForFile(file, size50, into(received)));
    finish();
    EXPECT_THAT(received, ElementsAre(image));
    EXPECT_THAT(rendered(), ElementsAre("/1.mp3"));
}

TEST_F(KXMDThumbnailHandler, IsCalledOnceWithNothingWhenThereIsNoPicture)
{
    Received received;
    EXPECT_FALSE(controller->thumbnailForPath("/x", size50, into(received)));
    EXPECT_FALSE(controller->thumbnailForFile(fileAt("/y"), size50, into(received)));
    EXPECT_FALSE(controller->compositeThumbnailForFiles({ fileAt("/z") }, size50, into(received)));
    finish();
    EXPECT_EQ(received.size(), 3u);
    EXPECT_THAT(received, Each(IsNull()));
}

TEST_F(KXMDThumbnailHandler, IsCalledOnTheMainQueueAndThePictureMadeElsewhere)
{
    /// Keeps the thread that it is used on.
    class ThreadKeeper final : public KXThumbnailService {
    public:
        Image imageForPath(std::string const&, KXSize) const override
        {
            thread = std::this_thread::get_id();
            return solid(9, 9, green);
        }
        mutable std::atomic<std::thread::id> thread;
    };
    auto const service = std::make_shared<ThreadKeeper>();
    auto platform = std::make_shared<KXPlatform>(*machine.platform());
    platform->thumbnailService = service;
    controller = KXMDThumbnailController::createWithPlatform(platform);

    std::thread::id handlerThread;
    EXPECT_FALSE(controller->thumbnailForPath(
        "/x", size50, [&](Image const&) { handlerThread = std::this_thread::get_id(); }));
    finish(); // Runs the main queue on this thread.
    EXPECT_EQ(handlerThread, std::this_thread::get_id());
    EXPECT_NE(service->thread.load(), std::this_thread::get_id());
    EXPECT_NE(service->thread.load(), std::thread::id());
}

TEST_F(KXMDThumbnailHandler, RequestsAreServedInTheirOrder)
{
    std::vector<std::string> order;
    for (char const* path : { "/c", "/a", "/b", "/d" }) {
        coloured(path, green);
        EXPECT_FALSE(controller->thumbnailForPath(
            path, size50, [&order, path](Image const&) { order.push_back(path); }));
    }
    finish();
    EXPECT_THAT(order, ElementsAre("/c", "/a", "/b", "/d"));
    EXPECT_EQ(rendered(), order);
}

TEST_F(KXMDThumbnailHandler, TwoRequestsForOnePictureRenderItOnce)
{
    coloured("/x", green);
    Received received;
    EXPECT_FALSE(controller->thumbnailForPath("/x", size50, into(received)));
    Image const second = controller->thumbnailForPath("/x", size50, into(received));
    finish(); // The second was answered at once if the first had been served meanwhile.
    ASSERT_EQ(received.size(), second ? 1u : 2u);
    EXPECT_THAT(received, Each(controller->thumbnailForPath("/x", size50)));
    EXPECT_THAT(rendered(), ElementsAre("/x"));
}

TEST_F(KXMDThumbnailHandler, MayBeMissing)
{
    coloured("/x", green);
    EXPECT_FALSE(controller->thumbnailForPath("/x", size50, nullptr));
    finish();
    EXPECT_TRUE(controller->thumbnailExistsForPath("/x", size50));
}

TEST_F(KXMDThumbnailHandler, MayAskForMore)
{
    coloured("/x", green);
    auto const file = coloured("/y", red);
    Received received;
    EXPECT_FALSE(controller->thumbnailForPath("/x", size50, [&](Image const& image) {
        received.push_back(image);
        EXPECT_EQ(controller->thumbnailForPath("/x", size50), image); // No lock is held.
        EXPECT_FALSE(controller->thumbnailForFile(file, size50, into(received)));
    }));
    finish();
    finish();
    EXPECT_EQ(received.size(), 2u);
}

TEST_F(KXMDThumbnailHandler, IsCalledThoughTheControllerWasLetGo)
{
    auto file = coloured("/x", green);
    Received received;
    EXPECT_FALSE(controller->thumbnailForFile(std::move(file), size50, into(received)));
    std::weak_ptr<KXMDThumbnailController> const alive = controller;
    controller.reset();
    machine.mainQueue->waitAndRunAll();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_TRUE(received[0]);
}

TEST_F(KXMDThumbnailHandler, IsGivenNothingWhenMakingThePictureThrows)
{
    /// Fails as a platform must not, but as memory that is out makes anything fail.
    class ThrowingService final : public KXThumbnailService {
    public:
        Image imageForPath(std::string const& path, KXSize) const override
        {
            if (path == "/text")
                throw "no exception of the library's";
            if (path == "/logic")
                throw std::length_error("too long");
            throw std::bad_alloc();
        }
    };
    auto platform = std::make_shared<KXPlatform>(*machine.platform());
    platform->thumbnailService = std::make_shared<ThrowingService>();
    controller = KXMDThumbnailController::createWithPlatform(platform);

    LogCapture const log;
    std::string const line = "Metadata: KXMDThumbnailController->a picture could not be made";
    Received received;
    EXPECT_FALSE(controller->thumbnailForPath("/memory", size50, into(received)));
    EXPECT_FALSE(controller->thumbnailForPath("/logic", size50, into(received)));
    EXPECT_FALSE(controller->thumbnailForPath("/text", size50, into(received)));
    finish();
    EXPECT_THAT(received, ElementsAre(nullptr, nullptr, nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(line, line, line));
    EXPECT_THROW((void)controller->thumbnailForPath("/memory", size50), std::bad_alloc);
}

TEST_F(KXMDThumbnailHandler, IsGivenNothingWhenAFileLosesItsCacheNameMeanwhile)
{
    /// Keeps the queue busy until the latch opens.
    class WaitingService final : public KXThumbnailService {
    public:
        Image imageForPath(std::string const&, KXSize) const override
        {
            latch.wait();
            return nullptr;
        }
        mutable std::latch latch { 1 };
    };
    auto const service = std::make_shared<WaitingService>();
    auto platform = std::make_shared<KXPlatform>(*machine.platform());
    platform->thumbnailService = service;
    controller = KXMDThumbnailController::createWithPlatform(platform);

    LogCapture const log;
    Received received;
    auto const file = track("", "A", "B");
    EXPECT_FALSE(controller->thumbnailForPath("/busy", size50, into(received)));
    EXPECT_FALSE(controller->compositeThumbnailForFiles({ file }, size50, into(received)));
    file->setMetadataForKey({}, "Album");
    service->latch.count_down();
    finish();
    EXPECT_THAT(received, ElementsAre(nullptr, nullptr));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KXMDThumbnailHandler, IsLetGoOnTheMainQueue)
{
    std::thread::id destroyedOn;
    std::shared_ptr<int> held(new int, [&destroyedOn](int* doomed) {
        delete doomed;
        destroyedOn = std::this_thread::get_id();
    });
    EXPECT_FALSE(
        controller->thumbnailForPath("/x", size50, [held = std::move(held)](Image const&) {}));
    finish();
    EXPECT_EQ(destroyedOn, std::this_thread::get_id());
}

TEST_F(KXMDThumbnailHandler, OverlappingRequestsOfManyThreadsAreEachAnsweredOnce)
{
    constexpr std::size_t threadCount = 8;
    constexpr std::size_t rounds = 60;
    // Room for three pictures of 20 by 20, so that most are evicted before they are asked for.
    controller = KXMDThumbnailController::createWithPlatform(machine.platform(), 3 * 20 * 20 * 4);
    KXMDThumbnailController::Files const files { coloured("/0", red), coloured("/1", green),
        coloured("/2", blue), coloured("/3", white), fileAt("/none") };
    auto const cover = solid(30, 20, green);

    std::atomic<std::size_t> answeredAtOnce { 0 };
    std::size_t handled = 0; // Touched on this thread alone.
    std::latch start(threadCount);
    auto const request = [&](std::size_t i) -> Image {
        KXSize const size { i % 3 ? 20.0 : 16.0, 20 };
        auto const& file = files[i % 4];
        auto const handler = [&handled, size](Image const& image) {
            ++handled;
            EXPECT_TRUE(!image || image->size() == size);
        };
        controller->setThumbnailForPath("/" + std::to_string(i % 9), cover, size);
        (void)controller->thumbnailForFile(*files[(i + 1) % 5], size);
        switch (i % 4) {
        case 0:
            return controller->thumbnailForFile(file, size, handler);
        case 1:
            return controller->thumbnailForPath("/" + std::to_string(i % 7), size, handler);
        case 2:
            return controller->compositeThumbnailForFiles(files, size, handler);
        default:
            return controller->iconForFile(file, size, handler);
        }
    };
    {
        std::vector<std::jthread> threads;
        for (std::size_t thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([&, thread] {
                start.arrive_and_wait();
                for (std::size_t i = 0; i < rounds; ++i)
                    answeredAtOnce += request(thread * 7 + i) ? 1 : 0;
            });
        }
    }
    finish();
    EXPECT_EQ(answeredAtOnce + handled, threadCount * rounds);
    EXPECT_GT(handled, 0u);
}
