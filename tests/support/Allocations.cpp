#include "support/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local Allocations counted;

void* counting(std::size_t size, void* memory)
{
    if (!memory)
        throw std::bad_alloc();
    ++counted.count;
    counted.bytes += size;
    return memory;
}

}

Allocations Allocations::soFar() { return counted; }

// The other forms call these.
void* operator new(std::size_t size) { return counting(size, std::malloc(size ? size : 1)); }

void* operator new(std::size_t size, std::align_val_t alignment)
{
    auto const step = static_cast<std::size_t>(alignment);
    return counting(size, std::aligned_alloc(step, (size + step - 1) / step * step));
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
