#include "kxmd/host/KXDCFile.h"

#include "kxmd/base/KXPath.h"

#include <utility>

KXDCFile::~KXDCFile() = default;

std::string_view KXTextOfValue(KXDCValue const& value)
{
    auto const* const text = std::get_if<std::string>(&value);
    return text ? std::string_view(*text) : std::string_view();
}

KXDCSimpleFile::KXDCSimpleFile(std::string sourcePath)
    : _sourcePath(std::move(sourcePath))
    , _name(KXLastPathComponent(_sourcePath))
{
}

KXDCValue KXDCSimpleFile::metadataForKey(std::string_view key) const
{
    std::scoped_lock const lock(_mutex);
    auto const found = _metadata.find(key);
    return found == _metadata.end() ? KXDCValue() : found->second;
}

void KXDCSimpleFile::setMetadataForKey(KXDCValue value, std::string_view key)
{
    std::string name(key);
    std::scoped_lock const lock(_mutex);
    // What was there before leaves with `value`, after the lock: a host's object may ask this file
    // while it is destroyed.
    _metadata[std::move(name)].swap(value);
}

void KXDCSimpleFile::setName(std::string name)
{
    std::scoped_lock const lock(_mutex);
    _name = std::move(name);
}

std::string KXDCSimpleFile::filename() const
{
    return std::string(KXLastPathComponent(_sourcePath));
}

std::string KXDCSimpleFile::name() const
{
    std::scoped_lock const lock(_mutex);
    return _name;
}
