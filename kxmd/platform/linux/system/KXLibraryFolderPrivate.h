#pragma once

#include <string>
#include <string_view>

/// The path of what lies at `relativePath` from the folder of this library, wherever both are
/// installed; empty when that folder is not known.
std::string pathBesideLibrary(std::string_view relativePath);
