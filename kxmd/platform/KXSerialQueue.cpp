#include "kxmd/platform/KXSerialQueue.h"

#include "kxmd/host/KXLog.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>

struct KXSerialQueue::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Work> works;
    bool threadStarted { false };
    bool released { false };

    void runWorks()
    {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return released || !works.empty(); });
            if (works.empty())
                return;
            Work work = std::move(works.front());
            works.pop_front();
            lock.unlock();
            work();
            work = nullptr; // What it holds may be the last owner of the queue: let go unlocked.
            lock.lock();
        }
    }
};

namespace {

/// Linux shows at most 15 characters of a thread's name.
std::string threadNameOfLabel(std::string const& label)
{
    return label.substr(label.rfind('.') + 1).substr(0, 15);
}

}

KXSerialQueue::KXSerialQueue(std::string label)
    : _label(std::move(label))
    , _state(std::make_shared<State>())
{
}

KXSerialQueue::~KXSerialQueue()
{
    std::scoped_lock const lock(_state->mutex);
    _state->released = true;
    _state->changed.notify_one();
}

void KXSerialQueue::async(Work work)
{
    std::scoped_lock const lock(_state->mutex);
    _state->works.push_back(std::move(work));
    if (!_state->threadStarted)
        startThread();
    _state->changed.notify_one();
}

void KXSerialQueue::startThread()
{
    try {
        // Detached: the queue may be released on this very thread, which could not join itself.
        std::thread thread([state = _state] { state->runWorks(); });
        ::pthread_setname_np(thread.native_handle(), threadNameOfLabel(_label).c_str());
        thread.detach();
        _state->threadStarted = true;
    } catch (std::system_error const&) {
        KXLog("Metadata", "KXSerialQueue->no thread to be had, the next work tries again");
    }
}
