#pragma once

#include <string>

/// The same text for names that differ in the case of their letters alone.
std::string nameWithoutCase(std::string const& name);
