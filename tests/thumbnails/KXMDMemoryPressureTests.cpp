#include "support/ThumbnailTest.h"

#include <atomic>
#include <thread>

using namespace pictures;

namespace {

constexpr KXSize size64 { 64, 64 };

class KXMDMemoryPressure : public ThumbnailTest { };

}

TEST_F(KXMDMemoryPressure, EmptiesTheCache)
{
    controller->setThumbnailForPath("/a", quarters(64, 64), size64);
    controller->setThumbnailForPath("/b", quarters(64, 64), size64);
    machine.memoryPressure->runShort();
    EXPECT_FALSE(controller->thumbnailExistsForPath("/a", size64));
    EXPECT_FALSE(controller->thumbnailExistsForPath("/b", size64));
}

TEST_F(KXMDMemoryPressure, LeavesPicturesThatAreInUse)
{
    auto const file = coloured("/a", red);
    auto const image = controller->thumbnailForFile(*file, size64);
    machine.memoryPressure->runShort();
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 30, 30), red);
    auto const again = controller->thumbnailForFile(*file, size64);
    ASSERT_TRUE(again);
    EXPECT_TRUE(controller->thumbnailExistsForPath("/a", size64));
    EXPECT_EQ(rendered().size(), 2u);
}

TEST_F(KXMDMemoryPressure, IsObservedFromTheFirstPictureOnAndOnce)
{
    EXPECT_FALSE(controller->thumbnailForPath("/missing", size64));
    EXPECT_FALSE(controller->thumbnailExistsForPath("/a", size64));
    EXPECT_EQ(machine.memoryPressure->observerCount(), 0u);
    for (char const* path : { "/a", "/b" })
        controller->setThumbnailForPath(path, quarters(8, 8), size64);
    EXPECT_EQ(machine.memoryPressure->observerCount(), 1u);
}

TEST_F(KXMDMemoryPressure, DoesNotKeepTheControllerAlive)
{
    controller->setThumbnailForPath("/a", quarters(8, 8), size64);
    std::weak_ptr<KXMDThumbnailController> const alive = controller;
    controller.reset();
    EXPECT_TRUE(alive.expired());
    EXPECT_EQ(machine.memoryPressure->observerCount(), 0u);
    machine.memoryPressure->runShort();
}

TEST_F(KXMDMemoryPressure, MayComeOnAnyThreadWhilePicturesAreMade)
{
    std::atomic<bool> isDone = false;
    std::jthread const pressure([&] {
        while (!isDone)
            machine.memoryPressure->runShort();
    });
    for (int i = 0; i < 500; ++i) {
        std::string const path = "/" + std::to_string(i % 7);
        controller->setThumbnailForPath(path, quarters(8, 8), { 8, 8 });
        auto const image
            = controller->imageForCacheName(controller->cacheNameForPath(path, { 8, 8 }));
        EXPECT_TRUE(!image || image->size() == (KXSize { 8, 8 }));
    }
    // The controller's last owner may be the observer.
    controller.reset();
    isDone = true;
}
