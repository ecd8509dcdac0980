#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformSync.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoSyncRecord.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sched.h>

// A condition variable is a sequence number that every wake-up advances by 2, and a count of waiters. A
// waiter registers and notes the number while it owns the mutex, gives the mutex back, and sleeps in the
// kernel as long as the number is the one it noted. Advancing and waking are one step in the kernel: a thread
// that starts to wait between the two cannot take the wake-up of one that waited before. Numbers repeat after
// 2^31 wake-ups, which a waiter would have to miss between noting and falling asleep.

namespace
{

using namespace KoPlatform;

// A thread that was woken leaves at once; one of another process that was killed meanwhile never does.
constexpr unsigned long long LEAVE_NS = 1000000000ULL;
constexpr unsigned long long PAUSE_NS = 1000000ULL;

// A process may be killed after it has changed what others wait for and before it wakes them, or after it was
// woken and before it has looked. So a wait on a shared condition ends by itself that often, for a look.
constexpr unsigned long long LOOK_NS = 500000000ULL;

/// Relaxed: a thread that changed what is waited for under the mutex sees, by the mutex, who waits for it.
unsigned int waiters(const _sync& condition)
{
    return countWord(condition) & SYNC_COUNT;
}

/// A number that has changed already is a wake-up too, one without a new number is another thread's.
int sleepUntilWoken(_sync& condition, unsigned int sequence, unsigned long long deadlineNs)
{
    const bool shared = isShared(condition);
    const unsigned long long lookNs = shared ? std::min(deadlineNs, futexClockNow() + LOOK_NS) : deadlineNs;
    int error = 0;
    while (error == 0 && ownerWord(condition) == sequence)
    {
        error = futexWaitTerminable(&condition.owner, sequence, shared, lookNs);
    }
    const bool onlyLook = error == ETIMEDOUT && lookNs < deadlineNs;
    return error == EAGAIN || onlyLook ? 0 : error;
}

int wake(_sync& condition, int count)
{
    return waiters(condition) == 0U ? 0 : futexAdvance(&condition.owner, count, isShared(condition));
}

/// One error number for both halves of a wait.
int waitOn(_sync& condition, _sync& mutex, const ConditionDeadlines& deadlines)
{
    int relockError = 0;
    const int error = waitForCondition(condition, mutex, deadlines, relockError);
    if (relockError == ECANCELED)
    {
        // A wake-up that this thread got goes to another one.
        error == 0 ? wake(condition, 1) : 0;
        endCallingThread();
    }
    return relockError != 0 ? relockError : error;
}

} // namespace

namespace KoPlatform
{

int waitForCondition(_sync& condition, _sync& mutex, const ConditionDeadlines& deadlines, int& relockError)
{
    relockError = 0;
    if (!isOwnedBy(mutex, kernelThreadSelf()))
    {
        relockError = EPERM;
        return EPERM;
    }
    __atomic_fetch_add(&condition.count, 1U, __ATOMIC_RELAXED);
    const unsigned int sequence = ownerWord(condition);
    const unsigned int lockedAgain = releaseMutex(mutex);
    const int error = sleepUntilWoken(condition, sequence, deadlines.wakeNs);
    // Release pairs with the acquire in pthread_cond_destroy: the condition may be gone after this.
    __atomic_fetch_sub(&condition.count, 1U, __ATOMIC_RELEASE);
    if (error == ECANCELED)
    {
        relockError = error;
        return error;
    }
    relockError = relockMutexUntil(mutex, error == ETIMEDOUT ? deadlines.relockLateNs : deadlines.relockNs);
    if (relockError == 0)
    {
        restoreMutex(mutex, lockedAgain);
    }
    return error;
}

int wakeAnyWaiter(_sync& condition)
{
    if (waiters(condition) == 0U)
    {
        return 0;
    }
    // Relaxed: a waiter that sees it looks by the mutex. Others may have added meanwhile, which wakes as
    // well.
    __atomic_fetch_add(&condition.owner, 2U, __ATOMIC_RELAXED);
    return futexWake(&condition.owner, 1, isShared(condition));
}

int pthread_condattr_init(SyncAttributes* attributes)
{
    return pthread_mutexattr_init(attributes);
}

int pthread_condattr_destroy(SyncAttributes* attributes)
{
    return pthread_mutexattr_destroy(attributes);
}

int pthread_condattr_setclock(SyncAttributes* attributes, int clockId)
{
    const bool initialised = (attributes->flags & SYNC_ATTRIBUTES) != 0U;
    return initialised && clockId == CLOCK_ID_MONOTONIC ? 0 : EINVAL;
}

int pthread_condattr_setpshared(SyncAttributes* attributes, int shared)
{
    return pthread_mutexattr_setpshared(attributes, shared);
}

int pthread_cond_init(_sync* condition, const SyncAttributes* attributes)
{
    *condition = _sync{0U, 0U};
    if (attributes == nullptr)
    {
        return 0;
    }
    if ((attributes->flags & SYNC_ATTRIBUTES) == 0U)
    {
        return EINVAL;
    }
    condition->count = attributes->flags & SYNC_SHARED;
    return 0;
}

int pthread_cond_wait(_sync* condition, _sync* mutex)
{
    unsigned int states = 0U;
    const unsigned long long armed = takeTimeout(TIMEOUT_CONDVAR | TIMEOUT_MUTEX, &states);
    // A timeout that ran out in the first state does not bound the second.
    const ConditionDeadlines deadlines = {(states & TIMEOUT_CONDVAR) != 0U ? armed : NO_DEADLINE,
                                          (states & TIMEOUT_MUTEX) != 0U ? armed : NO_DEADLINE, NO_DEADLINE};
    return waitOn(*condition, *mutex, deadlines);
}

int pthread_cond_timedwait(_sync* condition, _sync* mutex, unsigned long long deadlineNs)
{
    takeTimeout(0U, nullptr);
    return waitOn(*condition, *mutex, ConditionDeadlines{deadlineNs, NO_DEADLINE, NO_DEADLINE});
}

int pthread_cond_signal(_sync* condition)
{
    return wake(*condition, 1);
}

int pthread_cond_broadcast(_sync* condition)
{
    return wake(*condition, INT_MAX);
}

int pthread_cond_destroy(_sync* condition)
{
    const unsigned long long deadlineNs = monotonicNow() + LEAVE_NS;
    // Acquire pairs with the release of a waiter that leaves.
    while ((__atomic_load_n(&condition->count, __ATOMIC_ACQUIRE) & SYNC_COUNT) != 0U &&
           monotonicNow() < deadlineNs)
    {
        if (futexCountSleepers(&condition->owner, isShared(*condition)) > 0)
        {
            return EBUSY;
        }
        pauseFor(PAUSE_NS);
    }
    *condition = _sync{0U, 0U};
    return 0;
}

} // namespace KoPlatform
