#pragma once

#include "pf/platform/KoPlatformClock.h"

namespace KoPrivate
{

/// The absolute monotonic time, in nanoseconds, `timeoutMs` (not negative) from now: the deadline of a timed
/// lock or wait.
inline unsigned long long deadlineAfter(int timeoutMs)
{
    constexpr unsigned long long NS_PER_MS = 1000000ULL;
    return KoPlatform::monotonicNow() + static_cast<unsigned long long>(timeoutMs) * NS_PER_MS;
}

} // namespace KoPrivate
