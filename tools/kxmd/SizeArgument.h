#pragma once

#include <kxmd/base/KXSize.h>

#include <optional>
#include <string_view>

/// The size in points that `text` writes as "WxH", decimals allowed ("100.7x96.2"). Absent when it
/// is anything else, or when a side is 0.
std::optional<KXSize> sizeFromArgument(std::string_view text);
