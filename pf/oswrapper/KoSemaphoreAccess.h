#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoOSTypes.h"

/// Counting semaphores with a highest value, between threads or, in shared memory, between processes.
/// CKoBinarySemaphore and CKoCountingSemaphore are the classes that own one; KoTriggerAccess is smaller where
/// a wake-up inside one process is all that is needed.
///
/// Any thread may call any function. A record may be destroyed only when no call on it is under way and none
/// will come, but for those threads of the same process whose units the caller has taken. A call on a record
/// that was not created, or was destroyed, fails at once with `EINVAL`. Interruptions by signals are never
/// seen. What happened before a unit was given is seen by who takes it, and what happened before one was
/// dropped at the maximum by who takes one of those that are there. A thread that waits can be ended; a
/// wake-up that it had got goes to another waiter.
///
/// Processes that are killed. Whatever instruction of these functions a process is killed in, the record
/// stays usable for the others: the lock is taken over, the value stays between 0 and the maximum, and
/// whoever waits for a unit that is there has it within a second. What the dead process alone knew is lost: a
/// semaphore has no owner, so a unit that it took stays taken until somebody gives it back on its behalf, and
/// whether it gave or took one in its last instant only the value can tell. A process that is killed in its
/// sleep counts as a waiter for ever: every unit given then costs a call of the kernel that wakes nobody, and
/// destroying the record takes up to a second. The same is true, in a forked child, of the waiters of the
/// parent; create such a record anew.
///
/// Cost: taking or giving a unit that nobody waits for enters the kernel only when another thread is inside
/// the record at that moment. Giving one to a waiter is one call of the kernel. Who waits for a shared
/// semaphore looks at it twice a second.
namespace KoSemaphoreAccess
{

/// Creates the record. A failure is logged and reported as an assertion and leaves the record invalid.
/// \param initial the first value; below 0 counts as 0, above `maximum` as `maximum`.
/// \param maximum the highest value, at least 1; any other is reported as an assertion.
/// \param shared makes it usable across processes when it lies in shared memory.
KO_EXPORT void create(KoOSTypes::SEMHANDLE& h, int initial, int maximum, bool shared);

/// Takes a unit.
/// \param timeoutMs -1 waits without limit; 0 and below -1 try once; others wait at most so many milliseconds
/// on the monotonic clock, whatever wakes the thread meanwhile. \return whether the unit is the caller's. The
/// last error is 0 then. Otherwise it is `EAGAIN`: no unit for a single try; `EBUSY`: another thread was
/// inside the record during a single try, even if there are units; `ETIMEDOUT`: the time ran out; `EINVAL`:
/// not created; or the platform's error. A kernel timeout that is armed does not bound the call; one that can
/// wait drops it.
KO_EXPORT bool lock(KoOSTypes::SEMHANDLE& h, int timeoutMs);

/// Gives a unit and wakes a waiter, if there is one. At the maximum the unit is dropped, which is no failure.
/// \return 0, or the platform's error number, nothing changed; `EINVAL` when it is not created. The last
/// error is not touched.
KO_EXPORT int unlock(KoOSTypes::SEMHANDLE& h);

/// Ends the use of the record and leaves it invalid. Waits for threads of the process that are on their way
/// out of unlock(), at most a second. \return 0, or the platform's error number, which is
/// logged, when another thread is inside.
KO_EXPORT int destroy(KoOSTypes::SEMHANDLE& h);

} // namespace KoSemaphoreAccess
