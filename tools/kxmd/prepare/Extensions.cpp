#include "Extensions.h"

#include <algorithm>
#include <strings.h>

bool hasExtensionOf(std::span<std::string_view const> extensions, std::string_view name)
{
    return std::ranges::any_of(extensions, [name](std::string_view extension) {
        std::size_t const start = name.size() - std::min(name.size(), extension.size());
        return start > 0
            && ::strncasecmp(name.data() + start, extension.data(), extension.size()) == 0;
    });
}
