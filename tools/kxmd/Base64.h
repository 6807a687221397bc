#pragma once

#include <string>
#include <string_view>

/// `bytes` in base64 (RFC 4648, 4).
std::string base64Of(std::string_view bytes);

/// The bytes that `base64` stands for, without what is no whole number of them. Passes over what is
/// not of its alphabet.
std::string bytesOfBase64(std::string_view base64);
