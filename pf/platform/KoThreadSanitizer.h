#pragma once

/// KO_THREAD_SANITIZER is 1 in a build under the thread sanitizer, 0 otherwise.
#if defined(__SANITIZE_THREAD__)
#define KO_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KO_THREAD_SANITIZER 1
#endif
#endif
#ifndef KO_THREAD_SANITIZER
#define KO_THREAD_SANITIZER 0
#endif
