#include "kxmd/host/KXDCFile.h"

#include "kxmd/host/KXPath.h"

#include <utility>

KXDCFile::~KXDCFile() = default;

std::string_view textOfValue(KXDCValue const& value)
{
    auto const* const text = std::get_if<std::string>(&value);
    return text ? std::string_view(*text) : std::string_view();
}

KXDCSimpleFile::KXDCSimpleFile(std::string sourcePath)
    : _sourcePath(std::move(sourcePath))
    , _name(lastPathComponent(_sourcePath))
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
    std::scoped_lock const lock(_mutex);
    _metadata.insert_or_assign(std::string(key), std::move(value));
}

void KXDCSimpleFile::setName(std::string name)
{
    std::scoped_lock const lock(_mutex);
    _name = std::move(name);
}

std::string KXDCSimpleFile::filename() const { return std::string(lastPathComponent(_sourcePath)); }

std::string KXDCSimpleFile::name() const
{
    std::scoped_lock const lock(_mutex);
    return _name;
}
