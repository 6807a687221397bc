#include "kxmd/base/KXData.h"

#include <utility>

KXData::KXData(std::vector<std::uint8_t> bytes)
    : _bytes(std::make_shared<std::vector<std::uint8_t> const>(std::move(bytes)))
{
}
