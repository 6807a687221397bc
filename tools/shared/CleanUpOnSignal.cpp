#include "tools/shared/CleanUpOnSignal.h"

#include <pthread.h>
#include <system_error>
#include <utility>

namespace {

constexpr int wakeUp = SIGURG; // Ignored wherever it is not waited for.

bool isIgnored(int signal)
{
    struct sigaction action { };
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}

CleanUpOnSignal::CleanUpOnSignal(std::function<void()> cleanUp)
    : _cleanUp(std::move(cleanUp))
{
    sigemptyset(&_signals);
    sigaddset(&_signals, wakeUp);
    for (int const signal : { SIGHUP, SIGINT, SIGTERM }) {
        if (!isIgnored(signal)) // One that is waited for would be received all the same.
            sigaddset(&_signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &_signals, nullptr);
    try {
        _thread = std::thread([this] { wait(); });
    } catch (std::system_error const&) { // No more threads: signals end us at once.
        pthread_sigmask(SIG_UNBLOCK, &_signals, nullptr);
    }
}

CleanUpOnSignal::~CleanUpOnSignal()
{
    if (!_thread.joinable())
        return;
    _isOver = true;
    pthread_kill(_thread.native_handle(), wakeUp);
    _thread.join();
    pthread_sigmask(SIG_UNBLOCK, &_signals, nullptr);
}

void CleanUpOnSignal::wait()
{
    for (;;) {
        int const signal = sigwaitinfo(&_signals, nullptr);
        if (signal == wakeUp && _isOver)
            return;
        if (signal < 0 || signal == wakeUp)
            continue;
        _cleanUp();
        std::signal(signal, SIG_DFL);
        pthread_sigmask(SIG_UNBLOCK, &_signals, nullptr);
        raise(signal);
    }
}
