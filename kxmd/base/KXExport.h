#pragma once

/// Marks what the shared library offers; everything else is built with hidden visibility.
#define KX_EXPORT __attribute__((visibility("default")))

/// Marks what is exported for our own tests alone, from headers that are not installed, and only in
/// a developer's build.
#ifdef KXMD_DEVELOPER
#define KX_EXPORT_FOR_TESTS KX_EXPORT
#else
#define KX_EXPORT_FOR_TESTS
#endif
