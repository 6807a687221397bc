#include "CleanUpOnSignal.h"

#include <ctime>
#include <pthread.h>
#include <utility>

CleanUpOnSignal::CleanUpOnSignal(std::function<void()> cleanUp)
{
    sigemptyset(&_signals);
    for (int const signal : { SIGHUP, SIGINT, SIGTERM })
        sigaddset(&_signals, signal);
    pthread_sigmask(SIG_BLOCK, &_signals, nullptr);
    _thread = std::jthread([this, cleanUp = std::move(cleanUp)](std::stop_token const& stop) {
        constexpr timespec pause { .tv_sec = 0, .tv_nsec = 50'000'000 };
        while (!stop.stop_requested()) {
            int const signal = sigtimedwait(&_signals, nullptr, &pause);
            if (signal <= 0)
                continue;
            cleanUp();
            std::signal(signal, SIG_DFL);
            pthread_sigmask(SIG_UNBLOCK, &_signals, nullptr);
            raise(signal);
        }
    });
}

CleanUpOnSignal::~CleanUpOnSignal()
{
    _thread = {}; // Asks it to stop and waits.
    pthread_sigmask(SIG_UNBLOCK, &_signals, nullptr);
}
