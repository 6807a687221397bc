#pragma once

#include "kxmd/base/KXSanitizersPrivate.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

/// Memory for the atoms of one parse, which mostly die together: much quicker than to ask for each
/// by itself. All of it goes with the last atom, so one that a host keeps holds it all.
class KXMP4AtomArena {
public:
    /// Lets go of an arena that was made or kept.
    struct Release {
        void operator()(KXMP4AtomArena* arena) const { arena->release(); }
    };
    using Ref = std::unique_ptr<KXMP4AtomArena, Release>;

    static Ref make() { return Ref(new KXMP4AtomArena); }

    Ref keep()
    {
        _users.fetch_add(1, std::memory_order_relaxed);
        return Ref(this);
    }

    /// One thread at a time.
    void* allocate(std::size_t count)
    {
        std::size_t const taken = (count + alignment - 1) / alignment * alignment;
        if (taken > _left)
            addBlock(taken);
        std::byte* const bytes = _next;
        _next += taken;
        _left -= taken;
        _users.fetch_add(1, std::memory_order_relaxed);
        return bytes;
    }

    /// Any thread; once for each allocation.
    void release()
    {
        if (_users.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

private:
    static constexpr std::size_t alignment = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
    static constexpr std::size_t firstBlock = 4 * 1024, longestBlock = 256 * 1024; // Bytes.

    KXMP4AtomArena() = default;
    ~KXMP4AtomArena() = default;

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
    std::atomic<std::size_t> _users { 1 }; ///< Allocations that live, and those who allocate.
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
