#pragma once

#include "pf/base/KoExport.h"

/// Clocks and sleeping.
namespace KoPlatform
{

/// Clock ids with the kernel's numbers. Any other non-negative id is the host's.
enum Clock
{
    CLOCK_ID_REALTIME = 0,
    CLOCK_ID_MONOTONIC = 2 ///< nanoseconds since system start; the clock of all deadlines
};

/// Reads a clock.
/// \param newTime not offered, must be null.
/// \param oldTime receives the clock's value in nanoseconds.
/// \return 0, or -1 with `errno`: no such clock (`EINVAL`).
KO_EXPORT int ClockTime(int clockId, const unsigned long long* newTime, unsigned long long* oldTime);

/// Nanoseconds since system start; 0 if the clock cannot be read. Preserves `errno`.
KO_EXPORT unsigned long long monotonicNow();

/// Sleeps until the deadline on the monotonic clock, or until a signal comes.
/// \return 0 when the deadline has passed; otherwise the milliseconds left, rounded up.
KO_EXPORT unsigned int delayUntil(unsigned long long deadlineNs);

/// Sleeps that many milliseconds, or until a signal comes. \return as delayUntil.
KO_EXPORT unsigned int delay(unsigned int ms);

} // namespace KoPlatform
