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

void KXMDMemoryCache::setImageForName(KXImage::Ref image, std::string const& name)
{
    if (auto const found = _byName.find(name); found != _byName.end())
        remove(found->second);
    if (image->pixels().size() > _byteBudget)
        return;
    evictToByteCount(_byteBudget - image->pixels().size());
    _entries.push_front({ name, std::move(image) });
    _byName.emplace(_entries.front().name, _entries.begin());
    _byteCount += bytesOf(_entries.front());
}

void KXMDMemoryCache::evictToByteCount(std::size_t byteCount)
{
    while (_byteCount > byteCount)
        remove(std::prev(_entries.end()));
}

void KXMDMemoryCache::remove(Entries::iterator entry)
{
    _byteCount -= bytesOf(*entry);
    _byName.erase(entry->name);
    _entries.erase(entry);
}
