#include "support/NoThreads.h"

#include "support/NextFunction.h"

#include <atomic>
#include <cerrno>
#include <pthread.h>

namespace {

std::atomic<bool> areRefused { false };

}

NoThreads::NoThreads() { areRefused = true; }

NoThreads::~NoThreads() { areRefused = false; }

extern "C" {

/// Called instead of the C library's own.
int pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*start)(void*),
    void* argument) noexcept
{
    if (areRefused)
        return EAGAIN;
    using Create = int(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*);
    static auto* const original = next<Create>("pthread_create");
    return original(thread, attributes, start, argument);
}
}
