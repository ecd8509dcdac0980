#pragma once

#include "pf/base/KoExport.h"

/// A deadline for blocking calls: computed once, then armed before every try, so that interruptions never
/// extend it.
///
///     SKoKernelTimer timer(timeoutMs);
///     do result = timer.start() ? send() : -1; while (result == -1 && errno == EINTR);
///
/// A plain record. Any thread may use one of its own.
struct KO_EXPORT SKoKernelTimer
{
    /// \param timeoutMs milliseconds from now; negative for no deadline, 0 for one that has passed already.
    explicit SKoKernelTimer(int timeoutMs);

    /// Bounds the calling thread's next wait for a message to be received or replied to. \return whether it
    /// is bounded; if not, the reason is in the last error (`ETIMEDOUT` without a usable deadline).
    bool start();

    /// Whether the deadline has been reached; never without one. Preserves `errno`.
    bool timeoutOccurred() const;

    /// Absolute monotonic nanoseconds; all bits set for no deadline, 0 when none could be computed.
    unsigned long long deadlineNs;
};
