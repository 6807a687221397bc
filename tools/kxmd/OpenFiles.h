#pragma once

#include <cstddef>

/// How many results of work may hold a file open at once. Raises the process's limit as far as it
/// may.
std::size_t filesToHoldOpen();
