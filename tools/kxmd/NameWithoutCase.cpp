#include "NameWithoutCase.h"

#include <glib.h>

std::string nameWithoutCase(std::string const& name)
{
    bool const isText = g_utf8_validate_len(name.data(), name.size(), nullptr);
    auto const length = static_cast<gssize>(name.size());
    g_autofree char* folded
        = isText ? g_utf8_casefold(name.data(), length) : g_ascii_strdown(name.data(), length);
    return folded;
}
