#include "kxmd/thumbnails/KXMDMemoryCache.h"

#include <iterator>
#include <utility>

KXMDMemoryCache::KXMDMemoryCache(std::size_t byteBudget)
    : _byteBudget(byteBudget)
{
}

KXImage::Ref KXMDMemoryCache::imageForName(std::string const& name)
{
    auto const found = _byName.find(name);
    if (found == _byName.end())
        return nullptr;
    _entries.splice(_entries.begin(), _entries, found->second);
    return found->second->image;
}

KXMDMemoryCache::Entries KXMDMemoryCache::setImageForName(
    KXImage::Ref image, std::string const& name)
{
    Entries evicted;
    if (auto const found = _byName.find(name); found != _byName.end())
        moveTo(evicted, found->second);
    if (image->pixels().size() > _byteBudget)
        return evicted;
    evicted.splice(evicted.end(), evictToByteCount(_byteBudget - image->pixels().size()));
    _entries.push_front({ name, std::move(image) });
    _byName.emplace(_entries.front().name, _entries.begin());
    _byteCount += bytesOf(_entries.front());
    return evicted;
}

KXMDMemoryCache::Entries KXMDMemoryCache::evictToByteCount(std::size_t byteCount)
{
    Entries evicted;
    while (_byteCount > byteCount)
        moveTo(evicted, std::prev(_entries.end()));
    return evicted;
}

void KXMDMemoryCache::moveTo(Entries& evicted, Entries::iterator entry)
{
    _byteCount -= bytesOf(*entry);
    _byName.erase(entry->name);
    evicted.splice(evicted.end(), _entries, entry);
}
