#pragma once

/// Marks what the shared library offers; everything else is built with hidden visibility.
#define KX_EXPORT __attribute__((visibility("default")))
