// Preloaded into a program, lets it start as many threads as $KXMD_MOST_THREADS says and no more.

#include "support/NextFunction.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <pthread.h>

extern "C" {

[[gnu::visibility("default")]] int pthread_create(
    pthread_t* thread, pthread_attr_t const* attributes, void* (*start)(void*), void* argument)
{
    static std::atomic<int> started { 0 };
    char const* const most = std::getenv("KXMD_MOST_THREADS");
    if (most && ++started > std::atoi(most))
        return EAGAIN;
    using Create = int(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*);
    static auto* const original = next<Create>("pthread_create");
    return original(thread, attributes, start, argument);
}
}
