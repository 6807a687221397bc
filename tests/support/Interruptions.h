#pragma once

#include <chrono>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <stop_token>
#include <thread>

/// For as long as it lives, a signal that has a handler interrupts the thread that made it every
/// few milliseconds.
class Interruptions {
public:
    Interruptions()
    {
        struct sigaction action { };
        action.sa_handler = [](int) {};
        ::sigaction(SIGUSR1, &action, &_before);
        _thread = std::jthread([interrupted = ::pthread_self()](std::stop_token const& stop) {
            while (!stop.stop_requested()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                ::pthread_kill(interrupted, SIGUSR1);
            }
        });
    }
    ~Interruptions()
    {
        _thread.request_stop();
        _thread.join();
        ::sigaction(SIGUSR1, &_before, nullptr);
    }
    Interruptions(Interruptions const&) = delete;
    Interruptions& operator=(Interruptions const&) = delete;

private:
    struct sigaction _before { };
    std::jthread _thread;
};

/// How long `work` keeps the processor busy for this thread.
template <class Work> std::chrono::nanoseconds processorTimeOf(Work work)
{
    auto const soFar = [] {
        timespec time {};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    auto const begin = soFar();
    work();
    return soFar() - begin;
}
