#include "support/Allocations.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

thread_local Allocations counted;
constexpr std::uint64_t none = std::numeric_limits<std::uint64_t>::max();
thread_local std::uint64_t failingCount = none;

/// What `allocate` gives, counted, unless it is to fail.
template <class Allocate> void* counting(std::size_t size, Allocate allocate)
{
    if (counted.count == failingCount) {
        failingCount = none;
        throw std::bad_alloc();
    }
    void* const memory = allocate();
    if (!memory)
        throw std::bad_alloc();
    ++counted.count;
    counted.bytes += size;
    return memory;
}

void countedFree(void* memory)
{
    counted.freed += memory != nullptr;
    std::free(memory);
}

}

Allocations Allocations::soFar() { return counted; }

FailingAllocation::FailingAllocation(std::uint64_t count) { failingCount = counted.count + count; }

FailingAllocation::~FailingAllocation() { failingCount = none; }

bool FailingAllocation::hasFailed() const { return failingCount == none; }

// The forms that promise not to throw call these. So do those for arrays in the standard library,
// but those of a sanitizer do not.
void* operator new(std::size_t size)
{
    return counting(size, [size] { return std::malloc(size ? size : 1); });
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    auto const step = static_cast<std::size_t>(alignment);
    return counting(
        size, [=] { return std::aligned_alloc(step, (size + step - 1) / step * step); });
}

void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return operator new(size, alignment);
}

void operator delete(void* memory) noexcept { countedFree(memory); }
void operator delete(void* memory, std::size_t) noexcept { countedFree(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { countedFree(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { countedFree(memory); }
void operator delete[](void* memory) noexcept { countedFree(memory); }
void operator delete[](void* memory, std::size_t) noexcept { countedFree(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { countedFree(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept
{
    countedFree(memory);
}
