// A host that forks while the library's threads are at work, as every program does that starts
// others.

#include "kxmd/core/KXMDFileMetaController.h"

#include "support/Files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace build;

namespace {

/// Keeps the queue's thread of a controller, the locks and the allocator busy.
class Load {
public:
    explicit Load(KXDCFile::Ref file)
        : _file(std::move(file))
    {
    }
    ~Load()
    {
        _isOver = true;
        _thread.join();
    }
    Load(Load const&) = delete;
    Load& operator=(Load const&) = delete;

private:
    void work()
    {
        auto const controller = KXMDFileMetaController::create();
        while (!_isOver) {
            std::atomic<int> waiting { 8 };
            for (int i = 0; i < 8; ++i)
                controller->fileMetaForFile(_file, [&waiting](auto const&) { --waiting; });
            while (waiting)
                std::this_thread::yield();
        }
    }

    KXDCFile::Ref const _file;
    std::atomic<bool> _isOver { false };
    std::thread _thread { [this] { work(); } };
};

/// Whether a child of ours ends well within ten seconds; it is killed if it does not.
bool endsWell(pid_t child)
{
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int status = 0;
    while (std::chrono::steady_clock::now() < end) {
        if (::waitpid(child, &status, WNOHANG) == child)
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    return false;
}

}

TEST(KXFork, ChildThatOnlyCallsExecWaitsForNothing)
{
    TemporaryFolder const folder;
    auto const file = std::make_shared<KXDCSimpleFile>(
        folder.write("song.mp3", tag(ID3::v23, textFrame(ID3::v23, "TIT2", "Title"))));
    Load const first(file), second(file);
    for (int i = 0; i < 100; ++i) {
        pid_t const child = ::fork();
        if (child == 0) {
            ::execl("/bin/true", "true", nullptr);
            ::_exit(1);
        }
        ASSERT_GT(child, 0);
        EXPECT_TRUE(endsWell(child)) << i;
    }
}
