#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/image/KXImage.h"

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>

/// Pictures by name, as many as fit a budget of bytes: the least recently used ones make room.
/// No lock of its own.
class KX_EXPORT KXMDMemoryCache {
public:
    /// A picture and its name.
    struct Entry {
        std::string name; ///< A cache name.
        KXImage::Ref image; ///< Never null.
    };
    /// Pictures that had to go, or were taken out.
    using Entries = std::list<Entry>;

    /// `initWithByteBudget:` A cache that holds up to `byteBudget` bytes of pixels.
    explicit KXMDMemoryCache(std::size_t byteBudget);
    /// Takes over the pictures of another cache, which is then only destroyed.
    KXMDMemoryCache(KXMDMemoryCache&&) = default;
    KXMDMemoryCache(KXMDMemoryCache const&) = delete; // The index points into the entries.
    KXMDMemoryCache& operator=(KXMDMemoryCache const&) = delete;

    /// `imageForName:` The picture of that name, from now on the most recently used; null if none.
    [[nodiscard]] KXImage::Ref imageForName(std::string const& name);

    /// `setImage:forName:` Keeps `image` under `name`, in place of an earlier one, and evicts
    /// others to make room. A picture larger than the whole budget is not kept. Returns what had
    /// to go, so that a lock around the cache can be left before it is destroyed.
    Entries setImageForName(KXImage::Ref image, std::string const& name);

    /// `evictToByteCount:` Takes pictures out until at most `byteCount` bytes are held, and returns
    /// them.
    Entries evictToByteCount(std::size_t byteCount);

    /// `byteCount` The bytes of pixels that are held.
    [[nodiscard]] std::size_t byteCount() const { return _byteCount; }

private:
    static std::size_t bytesOf(Entry const& entry) { return entry.image->pixels().size(); }
    void moveTo(Entries& evicted, Entries::iterator entry);

    std::size_t const _byteBudget;
    std::size_t _byteCount { 0 };
    Entries _entries; // The most recently used first.
    std::unordered_map<std::string_view, Entries::iterator> _byName; // Names live in the entries.
};
