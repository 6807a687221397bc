#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXMediaProbe.h"

#include <optional>
#include <string>
#include <string_view>

/// `probe` as the render server sends it: names and values in turn, each with a zero byte behind.
/// Texts end before the first zero that they hold.
KX_EXPORT_FOR_TESTS std::string textOfMediaProbe(KXMediaProbe const& probe);

/// The probe in a text that comes from whoever; absent when it is none.
KX_EXPORT_FOR_TESTS std::optional<KXMediaProbe> mediaProbeOfText(std::string_view text);

/// The most bytes that such a text has; longer ones are not sent, and not taken.
constexpr std::size_t longestMediaProbeText = 1 << 20;
