#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Keeps its keys in the order in which they were added.
using JSON = nlohmann::ordered_json;

/// `value` in one line of UTF-8, without a line end. Bytes that are not UTF-8, which a path may
/// hold, become U+FFFD; characters that a terminal would obey are escaped.
std::string jsonText(JSON const& value);

/// The same with a line end.
std::string jsonLine(JSON const& value);

/// The whole number that `number` is; absent when it is none, or too large to tell.
std::optional<std::int64_t> wholeNumber(double number);

/// A number without a fraction where it has none, so that readers get 320 and not 320.0.
JSON jsonNumber(double number);

/// Adds a path under `key`. One that is not UTF-8 is shown with U+FFFD in place of what is not, and
/// comes with its bytes in base64 (RFC 4648, 4) under `bytesKey`.
void addPath(JSON& object, std::string_view key, std::string_view bytesKey, std::string_view path);

/// An object about the file at `path`, with its "path" and what `fields` has.
JSON jsonOfFile(std::string_view path, JSON const& fields);
