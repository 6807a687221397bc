#pragma once

#include <nlohmann/json.hpp>

#include <string>

/// Keeps its keys in the order in which they were added.
using JSON = nlohmann::ordered_json;

/// `value` in one line of UTF-8, line end included. Bytes that are not UTF-8, which a path may
/// hold, become U+FFFD; characters that a terminal would obey are escaped.
std::string jsonLine(JSON const& value);

/// A number without a fraction where it has none, so that readers get 320 and not 320.0.
JSON jsonNumber(double number);
