#pragma once

// Which sanitizer this is built with.

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZORN_ADDRESS_SANITIZER 1
#elif __has_feature(thread_sanitizer)
#define ZORN_THREAD_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ZORN_ADDRESS_SANITIZER 1
#elif defined(__SANITIZE_THREAD__)
#define ZORN_THREAD_SANITIZER 1
#endif

#if defined(ZORN_ADDRESS_SANITIZER)
inline constexpr bool kAddressSanitizer = true;
#else
inline constexpr bool kAddressSanitizer = false;
#endif

#if defined(ZORN_THREAD_SANITIZER)
inline constexpr bool kThreadSanitizer = true;
#else
inline constexpr bool kThreadSanitizer = false;
#endif
