#pragma once

#include "pf/base/KoExport.h"

#include <csignal>

/// Kernel timeouts: a one-time limit that a thread arms for its own next call of this layer that can block.
///
/// The call takes the timeout, whatever becomes of it. If it blocks in one of the states that were named, it
/// fails with `ETIMEDOUT` once the deadline has passed; otherwise the timeout is just gone.
namespace KoPlatform
{

/// Blocking states, with the kernel's numbers, and the flag for absolute times.
enum TimeoutState : unsigned int
{
    TIMEOUT_SEND = 0x10U,
    TIMEOUT_RECEIVE = 0x20U,
    TIMEOUT_REPLY = 0x40U,
    TIMEOUT_MUTEX = 0x2000U,
    TIMEOUT_CONDVAR = 0x4000U,
    TIMEOUT_JOIN = 0x8000U,
    TIMEOUT_ABSOLUTE = 0x80000000U ///< the time is absolute
};

/// The deadline that never comes.
constexpr unsigned long long NO_DEADLINE = ~0ULL;

/// Arms the calling thread's timeout, or cancels it.
/// \param clockId the monotonic clock of KoPlatformClock.h; any other is refused.
/// \param flags blocking states, with TIMEOUT_ABSOLUTE when the time is absolute; 0 cancels.
/// \param notify not offered, must be null.
/// \param time nanoseconds; null stands for 0. NO_DEADLINE as an absolute time sets no limit.
/// \param oldTime not offered, must be null.
/// \return 0, or -1 with `errno` = `EINVAL`.
KO_EXPORT int TimerTimeout(int clockId, int flags, const struct sigevent* notify,
                           const unsigned long long* time, unsigned long long* oldTime);

/// Takes the calling thread's armed timeout: for the calls of this layer that can block.
/// \param states those that the call may block in.
/// \param takenStates receives the armed states, if it is not null; 0 when nothing was armed.
/// \return the deadline, NO_DEADLINE when nothing is armed for these states. Afterwards nothing is armed.
KO_EXPORT unsigned long long takeTimeout(unsigned int states, unsigned int* takenStates);

} // namespace KoPlatform
