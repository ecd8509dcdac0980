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

/// What the monotonic clock is read from: nanoseconds, never less than at the call before. Any thread may
/// call it.
using ClockSource = unsigned long long (*)();

/// Replaces the kernel's monotonic clock, for tests that move the time themselves: all that reads the clock
/// or compares it with a deadline follows; sleeps last by the kernel's clock. \param source null restores the
/// kernel's clock. \return the source until now, null for the kernel's.
KO_EXPORT ClockSource setClockSource(ClockSource source);

/// Sleeps until the deadline on the monotonic clock, or until a signal comes.
/// \return 0 when the deadline has passed; otherwise the milliseconds left, rounded up.
KO_EXPORT unsigned int delayUntil(unsigned long long deadlineNs);

/// Sleeps that many milliseconds, or until a signal comes. \return as delayUntil.
KO_EXPORT unsigned int delay(unsigned int ms);

} // namespace KoPlatform
