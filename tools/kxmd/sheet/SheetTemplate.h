#pragma once

#include <string_view>

/// `page.html`. The files take the place of "%FILES%", as a JSON array.
std::string_view sheetTemplate();
