#pragma once

#include <string>

/// SHA-256 of what the file of `descriptor` holds, in hexadecimal; empty when not all of it can be
/// read. Leaves the descriptor's position as it is.
std::string checksumOf(int descriptor);
