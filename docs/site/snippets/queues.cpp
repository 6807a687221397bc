// Thumbnails in an event loop that is not GLib's.

#include <kxmd/kxmd.h>

#include <condition_variable>
#include <deque>
#include <iostream>
#include <mutex>

// Stands for the event loop of a toolkit; `post` is what it offers other threads.
class Loop {
public:
    void post(std::function<void()> work)
    {
        std::lock_guard const lock(_mutex);
        _work.push_back(std::move(work));
        _hasWork.notify_one();
    }
    void runOne()
    {
        std::unique_lock lock(_mutex);
        _hasWork.wait(lock, [this] { return !_work.empty(); });
        auto const work = std::move(_work.front());
        _work.pop_front();
        lock.unlock();
        work();
    }

private:
    std::mutex _mutex;
    std::condition_variable _hasWork;
    std::deque<std::function<void()>> _work;
};

//! [queue]
class LoopQueue final : public KXQueue {
public:
    explicit LoopQueue(Loop& loop)
        : _loop(loop)
    {
    }
    void async(Work work) override { _loop.post(std::move(work)); }

private:
    Loop& _loop; // Lives as long as the process.
};
//! [queue]

int main()
{
    //! [platform]
    static Loop loop;
    auto platform = std::make_shared<KXPlatform>(*KXPlatform::platformOfThisMachine());
    platform->mainQueue = std::make_shared<LoopQueue>(loop);
    KXPlatform::setShared(platform); // Before anything else of the library is used.
    //! [platform]

    //! [ask]
    auto const cached = KXMDThumbnailController::sharedController()->thumbnailForPath(
        "photo.jpg", { 128, 128 }, [](KXImage::Ref const& image) {
            std::cout << (image ? "a picture came\n" : "there is nothing to show\n");
        });
    std::cout << (cached ? "it was in the cache\n" : "it is being made\n");
    loop.runOne();
    //! [ask]

    //! [meta]
    auto const file = std::make_shared<KXDCSimpleFile>("song.m4a");
    KXMDFileMetaController::sharedController()->fileMetaForFile(
        file, [](KXMDFileMeta::Ref meta) {
            loop.post([meta = std::move(meta)] { // We are on the controller's thread here.
                std::cout << meta->metadataForKey(KXMDMetadataKeyName).value_or("no title")
                          << '\n';
            });
        });
    loop.runOne();
    //! [meta]
}
