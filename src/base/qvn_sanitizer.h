/// Which sanitizers the build has, for g++ and clang++ alike: 1 or 0.
#pragma once

#if defined(__has_feature)
#define QVN_HAS_FEATURE(feature) __has_feature(feature)
#else
#define QVN_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || QVN_HAS_FEATURE(address_sanitizer)
#define QVN_ADDRESS_SANITIZER 1
#else
#define QVN_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__) || QVN_HAS_FEATURE(thread_sanitizer)
#define QVN_THREAD_SANITIZER 1
#else
#define QVN_THREAD_SANITIZER 0
#endif
