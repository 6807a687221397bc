#include "kxmd/platform/KXAbsentPlatformPrivate.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

TEST(KXAbsentPlatform, ShowsNothing)
{
    auto const platform = absentPlatform();
    auto const data = KXAbstractData::abstractDataWithData(KXData({ 1, 2, 3, 4 }));
    auto const image = KXImage::imageWithSize({ 2, 2 });
    EXPECT_FALSE(platform->pictureLoader->imageInData(*data, 4, {}));
    EXPECT_EQ(platform->pictureLoader->jpgRepresentation(*image).length(), 0u);
    EXPECT_EQ(platform->pictureLoader->pngRepresentation(*image).length(), 0u);
    EXPECT_FALSE(platform->movieLoader->movieWithData(*data));
    EXPECT_FALSE(platform->movieLoader->mediaProbeWithData(*data));
    EXPECT_FALSE(platform->thumbnailService->imageForPath("/", { 16, 16 }));
    EXPECT_FALSE(platform->thumbnailService->squareForPath("/", { 16, 16 }));
    EXPECT_FALSE(platform->iconProvider->iconForFileType("mp3", { 16, 16 }));
}

TEST(KXAbsentPlatform, ReadsWritesAndRunsNothing)
{
    auto const platform = absentPlatform();
    EXPECT_FALSE(platform->fileManager->mutableDataWithContentsOfFile("/proc/self/exe"));
    EXPECT_FALSE(platform->fileManager->writeBytesToFile({}, "/tmp/kxmd-nowhere"));
    EXPECT_FALSE(platform->fileManager->createFolderAtPath("/tmp"));
    platform->fileManager->removeEmptyFolderAtPath("/tmp/kxmd-nowhere");
    EXPECT_FALSE(platform->fileManager->sizeOfFileAtPath("/"));
    EXPECT_EQ(platform->temporaryFolders->applicationTempFolder(), "");
    EXPECT_EQ(platform->temporaryFolders->applicationUniqueTempFolderWithPrefix("a"), "");
    EXPECT_FALSE(platform->taskRunner->runToolAtPath("/bin/true", {}));
    EXPECT_FALSE(platform->memoryPressure->addObserver([] {}));
}

TEST(KXAbsentPlatform, CallsHandlersOnAThreadOfItsOwn)
{
    std::promise<std::thread::id> called;
    absentPlatform()->mainQueue->async([&called] { called.set_value(std::this_thread::get_id()); });
    EXPECT_NE(called.get_future().get(), std::this_thread::get_id());
}

TEST(KXAbsentPlatform, NamesTextsAsEveryPlatformDoes)
{
    EXPECT_EQ(absentPlatform()->textDigest->sha1HexString("abc"),
        "a9993e364706816aba3e25717850c26c9cd0d89d");
}
