#include "kxmd/base/KXSerialQueue.h"

#include "kxmd/base/KXLog.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <pthread.h>
#include <string_view>
#include <thread>
#include <utility>

struct KXSerialQueue::State {
    /// Who runs the submitted work.
    enum class Runner {
        none,
        thread, ///< The queue's own, until the queue is released.
        submitter, ///< Whoever submitted when no thread could be started, until all is done.
    };

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Work> pending;
    Runner runner { Runner::none };
    bool released { false };

    void runOnOwnThread() noexcept
    {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return released || !pending.empty(); });
            if (pending.empty())
                return;
            runFirst(lock);
        }
    }

    void runOnThreadOfSubmitter() noexcept
    {
        std::unique_lock lock(mutex);
        while (!pending.empty())
            runFirst(lock);
        runner = Runner::none;
    }

private:
    void runFirst(std::unique_lock<std::mutex>& lock)
    {
        Work work = std::move(pending.front());
        pending.pop_front();
        lock.unlock();
        work();
        work = nullptr; // What it holds may be the last owner of the queue: let go unlocked.
        lock.lock();
    }
};

namespace {

/// Names this thread after the last component of a label. Linux takes at most 15 characters. Takes
/// no memory: that there is none is no reason to go without a thread that runs already.
void nameThisThread(std::string_view label) noexcept
{
    label.remove_prefix(label.rfind('.') + 1);
    std::array<char, 16> name {};
    label.copy(name.data(), name.size() - 1);
    ::pthread_setname_np(::pthread_self(), name.data());
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
    auto const state = _state; // Work that runs right here may release the queue.
    {
        std::scoped_lock const lock(state->mutex);
        state->pending.push_back(std::move(work));
        state->changed.notify_one();
        if (state->runner != State::Runner::none)
            return;
        state->runner = startThread() ? State::Runner::thread : State::Runner::submitter;
        if (state->runner == State::Runner::thread)
            return;
    }
    state->runOnThreadOfSubmitter();
    KXLog("Metadata",
        "KXSerialQueue->no thread could be started, the work was done on the submitting thread");
}

bool KXSerialQueue::startThread() const
{
    try {
        // Detached: the queue may be released on this very thread, which could not join itself.
        std::thread([state = _state, label = _label] {
            nameThisThread(label);
            state->runOnOwnThread();
        }).detach();
        return true;
    } catch (std::exception const&) { // No thread, or no memory for one.
        return false;
    }
}
