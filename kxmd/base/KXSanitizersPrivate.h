#pragma once

// Whether a development build has the address or the thread sanitizer, which GCC and clang tell in
// different ways.

#if defined(__SANITIZE_ADDRESS__)
#define KXMD_HAS_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KXMD_HAS_ADDRESS_SANITIZER 1
#endif
#endif
#ifndef KXMD_HAS_ADDRESS_SANITIZER
#define KXMD_HAS_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__)
#define KXMD_HAS_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KXMD_HAS_THREAD_SANITIZER 1
#endif
#endif
#ifndef KXMD_HAS_THREAD_SANITIZER
#define KXMD_HAS_THREAD_SANITIZER 0
#endif
