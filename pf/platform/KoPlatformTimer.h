#pragma once

#include "pf/base/KoExport.h"

#include <cstdint>
#include <ctime>

/// Kernel timers: each sends one pulse to a channel of the own process when it expires. They need no thread,
/// no signal and no descriptor: an expiry is looked at when somebody receives on the channel.
///
/// At most one pulse of a timer is queued: expiries that nobody received coalesce into it. Pulses of timers
/// that expired since the channel was last looked at are queued in the order of their expiries, then of their
/// arming; like all that is queued they are delivered by priority first. A periodic timer stays on its grid,
/// however late it is received.
///
/// All functions return -1 with `errno` on failure. Any thread may call them; a thread that waits on the
/// channel meanwhile sees a timer that another thread arms.
namespace KoPlatform
{

/// The pulse that a timer sends.
struct SPulseEvent
{
    int coid;            ///< a connection to a channel of the own process
    int priority;        ///< from 0 to 255
    int code;            ///< from -128 to 127
    std::intptr_t value; ///< a number or a pointer, delivered as it is
};

/// When a timer expires, in nanoseconds.
struct STimerSetting
{
    unsigned long long firstNs;    ///< until the first expiry; 0 disarms
    unsigned long long intervalNs; ///< between expiries afterwards; 0 for one expiry only
};

/// Creates a disarmed timer.
/// \param clockId the monotonic clock of KoPlatformClock.h; any other is `EINVAL`.
/// \param event the pulse; copied. When its connection is detached, or its channel destroyed, the timer stays
/// and sends nothing any more.
/// \return the timer's id, above 0, the lowest that is free. `EINVAL` also for null and for members out of
/// range; `EBADF` when there is no such connection, `ENOTSUP` when it leads to another process, `ESRCH` when
/// its channel is gone; `ENOMEM`; `EAGAIN` when the process has too many timers.
KO_EXPORT int TimerCreate(int clockId, const SPulseEvent* event);

/// Arms or disarms a timer. Arming drops a pulse of it that is queued, so that it counts from this call;
/// disarming leaves that pulse queued.
/// \param flags 0, or TIMER_ABSTIME (of `ctime`) when `firstNs` is a time of the clock; one that has passed
/// expires at once. \param setting the new setting. \param old receives the setting until now, if it is not
/// null: the time left until the next expiry (at least 1 while armed, 0 when disarmed) and the interval.
/// \return 0; `EINVAL` when there is no such timer, for other flags and for null.
KO_EXPORT int TimerSettime(int timerId, int flags, const STimerSetting* setting, STimerSetting* old);

/// Destroys a timer. A pulse of it that is queued stays, but is delivered with the value 0, so that nothing
/// new at the address of what it pointed to can be taken for it.
/// \return 0; `EINVAL` when there is no such timer.
KO_EXPORT int TimerDestroy(int timerId);

} // namespace KoPlatform
