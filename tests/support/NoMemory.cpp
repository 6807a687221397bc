#include "support/NoMemory.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>

namespace {

enum class State { off, counting, failed };

thread_local State state = State::off;
thread_local std::size_t left = 0;

}

NoMemory::NoMemory(std::size_t count)
{
    left = count;
    state = State::counting;
}

NoMemory::~NoMemory() { state = State::off; }

bool NoMemory::hasFailed() const { return state == State::failed; }

extern "C" {

/// Called instead of the C library's own.
int posix_memalign(void** memory, std::size_t alignment, std::size_t length) noexcept
{
    if (state == State::counting && left-- == 0) {
        state = State::failed;
        return ENOMEM;
    }
    using Allocate = int (*)(void**, std::size_t, std::size_t);
    static auto const original = reinterpret_cast<Allocate>(::dlsym(RTLD_NEXT, "posix_memalign"));
    return original(memory, alignment, length);
}
}
