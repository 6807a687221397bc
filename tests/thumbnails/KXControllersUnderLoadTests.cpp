// Both controllers asked by several threads at once, and let go from their own handlers. What
// matters most is found by the thread sanitizer.

#include "kxmd/core/KXMDFileMetaController.h"
#include "kxmd/thumbnails/KXMDThumbnailController.h"
#include "support/Fakes.h"
#include "support/Files.h"
#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int threadCount = 4, filesPerThread = 10, rounds = 10;
constexpr KXSize size { 16, 16 };

/// Runs `work(thread)` on several threads, and waits for them.
template <class Work> void onThreads(Work const& work)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
        threads.emplace_back([&work, thread] { work(thread); });
    for (auto& thread : threads)
        thread.join();
}

/// Calls works on a thread of its own, as the main loop of an application does.
class MainLoop {
public:
    explicit MainLoop(KXManualQueue& queue)
        : _thread([this, &queue] {
            while (!_isOver) {
                if (!queue.runAll())
                    std::this_thread::yield();
            }
        })
    {
    }
    ~MainLoop()
    {
        _isOver = true;
        _thread.join();
    }

private:
    std::atomic<bool> _isOver { false };
    std::thread _thread;
};

class KXControllersUnderLoadTest : public testing::Test {
protected:
    static void waitFor(std::atomic<int> const& called, int count)
    {
        while (called < count)
            std::this_thread::yield();
    }

    TemporaryFolder const folder;
    std::string const song = folder.write(
        "song.mp3", build::join(build::text("ID3"), build::bytes({ 3, 0, 0, 0, 0, 0, 0 })));
    FakeMachine const machine;
};

}

TEST_F(KXControllersUnderLoadTest, MetadataControllerMayBeLetGoByItsLastHandler)
{
    for (int round = 0; round < rounds; ++round) {
        std::atomic<int> called { 0 };
        std::weak_ptr<KXMDFileMetaController> gone;
        {
            auto const controller = KXMDFileMetaController::createWithPlatform(machine.platform());
            gone = controller;
            onThreads([&](int) {
                for (int i = 0; i < filesPerThread; ++i) {
                    // Each handler holds the controller, and the last one lets it go.
                    controller->fileMetaForFile(std::make_shared<KXDCSimpleFile>(song),
                        [&called, controller](KXMDFileMeta::Ref const& meta) {
                            EXPECT_TRUE(meta);
                            ++called;
                        });
                }
            });
        }
        waitFor(called, threadCount * filesPerThread);
        while (!gone.expired())
            std::this_thread::yield();
    }
}

TEST_F(KXControllersUnderLoadTest, ThumbnailControllerMayBeLetGoByItsLastHandler)
{
    for (int file = 0; file < filesPerThread; ++file) {
        machine.thumbnailService->setImageForPath(
            pictures::solid(32, 32, pictures::blue), "/" + std::to_string(file));
    }
    MainLoop const loop(*machine.mainQueue);
    for (int round = 0; round < rounds; ++round) {
        std::atomic<int> called { 0 }, atOnce { 0 };
        std::weak_ptr<KXMDThumbnailController> gone;
        {
            auto const controller = KXMDThumbnailController::createWithPlatform(machine.platform());
            gone = controller;
            onThreads([&](int) {
                for (int i = 0; i < filesPerThread; ++i) {
                    auto const handler = [&called, controller](KXImage::Ref const& image) {
                        EXPECT_TRUE(image);
                        ++called;
                    };
                    // From the cache it comes at once, and no handler is called.
                    if (controller->thumbnailForPath("/" + std::to_string(i), size, handler))
                        ++atOnce;
                }
            });
            waitFor(called, threadCount * filesPerThread - atOnce);
        }
        while (!gone.expired())
            std::this_thread::yield();
    }
}

TEST_F(KXControllersUnderLoadTest, HostMayReplaceThePlatformMeanwhile)
{
    auto const before = KXPlatform::shared();
    std::atomic<int> called { 0 };
    std::atomic<bool> isOver { false };
    std::thread replacing([&] {
        while (!isOver)
            KXPlatform::setShared(machine.platform());
    });
    onThreads([&](int) {
        for (int i = 0; i < filesPerThread; ++i) {
            auto const controller = KXMDFileMetaController::create(); // With the shared one.
            controller->fileMetaForFile(
                std::make_shared<KXDCSimpleFile>(song), [&called](KXMDFileMeta::Ref const& meta) {
                    EXPECT_TRUE(meta);
                    ++called;
                });
            auto const thumbnails
                = KXMDThumbnailController::createWithPlatform(KXPlatform::shared());
            EXPECT_FALSE(thumbnails->imageForCacheName("none"));
            thumbnails->setImageForCacheName(pictures::solid(2, 2, pictures::red), "some");
            EXPECT_TRUE(thumbnails->imageForCacheName("some"));
        }
    });
    waitFor(called, threadCount * filesPerThread);
    isOver = true;
    replacing.join();
    KXPlatform::setShared(before);
}
