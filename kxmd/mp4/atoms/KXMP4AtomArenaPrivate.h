#pragma once

#include "kxmd/base/KXSanitizersPrivate.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <limits>
#include <memory>
#include <vector>

/// Memory for the atoms of one parse, which mostly die together: much quicker than to ask for each
/// by itself. All of it goes with the last atom, so one that a host keeps holds it all.
class KXMP4AtomArena {
public:
    /// Says that no more will be allocated.
    struct Finish {
        void operator()(KXMP4AtomArena* arena) const { arena->release(arena->_unallocated); }
    };
    using Ref = std::unique_ptr<KXMP4AtomArena, Finish>;

    static Ref make() { return Ref(new KXMP4AtomArena); }

    /// One thread at a time.
    void* allocate(std::size_t count)
    {
        std::size_t const taken = (count + alignment - 1) / alignment * alignment;
        if (taken > _left)
            addBlock(taken);
        std::byte* const bytes = _next;
        _next += taken;
        _left -= taken;
        --_unallocated;
        return bytes;
    }

    /// Any thread; once for each allocation.
    void release() { release(1); }

private:
    static constexpr std::size_t alignment = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
    static constexpr std::size_t firstBlock = 4 * 1024, longestBlock = 256 * 1024; // Bytes.
    static constexpr std::size_t mostAllocations = std::numeric_limits<std::size_t>::max();

    KXMP4AtomArena() = default;
    ~KXMP4AtomArena() = default;

    void release(std::size_t count)
    {
        if (_unreleased.fetch_sub(count, std::memory_order_acq_rel) == count)
            delete this;
    }

    void addBlock(std::size_t least)
    {
        std::size_t const length = std::max(_blockLength, least);
        _blocks.push_back(std::make_unique_for_overwrite<std::byte[]>(length));
        _next = _blocks.back().get();
        _left = length;
        _blockLength = std::min(2 * _blockLength, longestBlock);
    }

    std::vector<std::unique_ptr<std::byte[]>> _blocks;
    std::byte* _next { nullptr };
    std::size_t _left { 0 };
    std::size_t _blockLength { firstBlock };
    std::size_t _unallocated { mostAllocations };
    std::atomic<std::size_t> _unreleased { mostAllocations }; ///< Those yet to be made as well.
};

/// Allocates from an arena, which must live until then.
template <class Value> struct KXMP4AtomAllocator {
    using value_type = Value;

    explicit KXMP4AtomAllocator(KXMP4AtomArena& source)
        : arena(&source)
    {
    }
    template <class Other>
    KXMP4AtomAllocator(KXMP4AtomAllocator<Other> const& other)
        : arena(other.arena)
    {
    }

    // A sanitizer is to know when one is gone.
    Value* allocate(std::size_t count)
    {
        if constexpr (KXMD_HAS_ADDRESS_SANITIZER)
            return std::allocator<Value>().allocate(count);
        return static_cast<Value*>(arena->allocate(count * sizeof(Value)));
    }
    void deallocate(Value* values, std::size_t count)
    {
        if constexpr (KXMD_HAS_ADDRESS_SANITIZER)
            return std::allocator<Value>().deallocate(values, count);
        arena->release();
    }

    template <class Other> bool operator==(KXMP4AtomAllocator<Other> const& other) const
    {
        return arena == other.arena;
    }

    KXMP4AtomArena* arena;
};
