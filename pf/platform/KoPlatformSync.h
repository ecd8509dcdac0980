#pragma once

#include "pf/base/KoExport.h"
#include "pf/platform/KoPlatformThread.h"

#include <ctime>

/// The kernel's synchronisation record: a mutex, a condition variable or a semaphore in two words.
///
/// As a mutex, `owner` is 0 while it is free and holds the owner's kernel thread id otherwise, with the top
/// bit set while others wait in the kernel; `count` holds its kind and how often a recursive one is locked
/// again. As a condition variable, `owner` is the sequence number that waiters sleep on and `count` the
/// number of waiters and its kind. As a semaphore, `owner` is its value and the number of waiters, `count`
/// its kind.
///
/// An all-zero record is a valid mutex (not recursive, private to the process) and a valid condition
/// variable, but no semaphore. Records must not be copied while they are in use. Size and alignment are the
/// same on every target, so a record may lie in memory that processes share (processes of one process-id
/// namespace).
struct _sync
{
    unsigned int count;
    unsigned int owner;
};

/// Mutexes, condition variables and semaphores on `_sync` records, under the kernel's call names.
///
/// All functions except the semaphores' return 0 or an error number and leave `errno` alone. Any thread may
/// call them. Deadlines are absolute nanoseconds of the monotonic clock. Interruptions by signals are never
/// seen. Mutexes pass the priority of a waiter on to the owner.
///
/// An owner that ends without unlocking does not block the others: the next one gets the lock, and
/// takeOwnerDied tells it. In a forked child that is so for every private mutex the parent had locked. A dead
/// owner whose thread id the kernel has given to a new thread looks alive until that thread ends: one of the
/// same process for a private mutex, any for a shared one.
///
/// Memory order: locking acquires what the unlocking thread released.
namespace KoPlatform
{

/// Attributes of a mutex or condition variable that is to be created.
struct SyncAttributes
{
    unsigned int flags;
};

/// Fills the record with the defaults: not recursive, private to the process.
KO_EXPORT int pthread_mutexattr_init(SyncAttributes* attributes);
/// Ends the use of the record; `EINVAL` when it is not initialised.
KO_EXPORT int pthread_mutexattr_destroy(SyncAttributes* attributes);
/// \param enabled 1 or 0; any other value is `EINVAL`, as is a record that is not initialised.
KO_EXPORT int pthread_mutexattr_setrecursive(SyncAttributes* attributes, int enabled);
/// \param shared 1 or 0; any other value is `EINVAL`, as is a record that is not initialised.
KO_EXPORT int pthread_mutexattr_setpshared(SyncAttributes* attributes, int shared);

/// Creates a free mutex.
/// \param attributes null for the defaults.
/// \return 0; `EINVAL` for attributes that are not initialised; `ENOTSUP` when the kernel cannot block on
/// such records (the mutex then works, but who has to wait polls).
KO_EXPORT int pthread_mutex_init(_sync* mutex, const SyncAttributes* attributes);

/// Waits until the mutex is the caller's. Takes an armed timeout (TimerTimeout) for the mutex state.
/// \return 0; `EDEADLK` at once when the caller owns it already and it is not recursive; `EAGAIN` when a
/// recursive one is locked too often; `ETIMEDOUT` when an armed timeout ran out; `EINVAL` when the record is
/// damaged. Threads that wait for each other are reported to the system log and keep waiting.
KO_EXPORT int pthread_mutex_lock(_sync* mutex);

/// Takes the mutex if that is possible at once. \return 0, or `EBUSY`.
KO_EXPORT int pthread_mutex_trylock(_sync* mutex);

/// Waits for the mutex until the deadline. Results as of pthread_mutex_lock; `ETIMEDOUT` when the deadline
/// has passed. A free mutex is taken even after the deadline. An armed timeout is dropped.
KO_EXPORT int pthread_mutex_timedlock_monotonic(_sync* mutex, unsigned long long deadlineNs);

/// Gives the mutex back, or one of several locks of a recursive one. \return 0; `EPERM` when it is not the
/// caller's.
KO_EXPORT int pthread_mutex_unlock(_sync* mutex);

/// Ends the use of a mutex and leaves the record all zero. \return 0; `EBUSY` while a living thread owns it
/// (nothing changes then).
KO_EXPORT int pthread_mutex_destroy(_sync* mutex);

/// Fast path of locking a mutex that is private to the process: takes it if it is free. \return false when it
/// is not, or when the calling thread is not known yet. Acquire pairs with the release in
/// releasePrivateMutex.
inline bool takePrivateMutex(_sync& mutex) noexcept
{
    const unsigned int self = sThreadIdentity.kernelId;
    if (isSingleThreaded())
    {
        const bool free = self != 0U && __atomic_load_n(&mutex.owner, __ATOMIC_RELAXED) == 0U;
        if (free)
        {
            __atomic_store_n(&mutex.owner, self, __ATOMIC_RELAXED);
        }
        return free;
    }
    unsigned int free = 0U;
    return self != 0U &&
           __atomic_compare_exchange_n(&mutex.owner, &free, self, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
}

/// Fast path of unlocking it: frees it if it is the caller's and nobody waits. \return false when not. Once
/// this succeeds another thread may destroy the mutex. Release pairs with the acquire in takePrivateMutex and
/// SyncMutexLock_r.
inline bool releasePrivateMutex(_sync& mutex) noexcept
{
    unsigned int self = sThreadIdentity.kernelId;
    if (isSingleThreaded())
    {
        const bool owned = __atomic_load_n(&mutex.owner, __ATOMIC_RELAXED) == self;
        if (owned)
        {
            __atomic_store_n(&mutex.owner, 0U, __ATOMIC_RELAXED);
        }
        return owned;
    }
    return __atomic_compare_exchange_n(&mutex.owner, &self, 0U, false, __ATOMIC_RELEASE, __ATOMIC_RELAXED);
}

/// Slow path of locking: waits for a mutex that the caller does not own and could not take in user space.
/// Results as of pthread_mutex_lock.
KO_EXPORT int SyncMutexLock_r(_sync* mutex);

/// Slow path of unlocking: gives the caller's mutex to a waiter. \return 0; `EPERM` when it is not the
/// caller's.
KO_EXPORT int SyncMutexUnlock_r(_sync* mutex);

/// Tells the owner, once, whether the mutex was taken over from a thread that ended without unlocking it, so
/// that it can repair what the mutex guards. Only for the owner.
KO_EXPORT bool takeOwnerDied(_sync* mutex);

/// Fills the record with the defaults: private to the process, monotonic clock.
KO_EXPORT int pthread_condattr_init(SyncAttributes* attributes);
/// Ends the use of the record; `EINVAL` when it is not initialised.
KO_EXPORT int pthread_condattr_destroy(SyncAttributes* attributes);
/// \param clockId the monotonic clock of KoPlatformClock.h; any other is `EINVAL`.
KO_EXPORT int pthread_condattr_setclock(SyncAttributes* attributes, int clockId);
/// \param shared 1 or 0; any other value is `EINVAL`, as is a record that is not initialised.
KO_EXPORT int pthread_condattr_setpshared(SyncAttributes* attributes, int shared);

/// Creates a condition variable.
/// \param attributes null for the defaults. \return 0; `EINVAL` for attributes that are not initialised.
KO_EXPORT int pthread_cond_init(_sync* condition, const SyncAttributes* attributes);

/// Gives the caller's mutex back, waits to be woken, and takes the mutex again (as often as it was locked).
/// Takes an armed timeout for the condition-variable state; if that timeout names the mutex state too, it
/// also bounds taking the mutex again. \return 0 after a wake-up, which may be nobody's; `EPERM` at once when
/// the mutex is not the caller's; `ETIMEDOUT` when an armed timeout ran out. The mutex is the caller's
/// afterwards, unless the timeout ran out while the mutex was awaited. A wait on a shared condition ends
/// twice a second as if woken, in case a process was killed between a change and its signal, or between being
/// woken and looking.
KO_EXPORT int pthread_cond_wait(_sync* condition, _sync* mutex);

/// The same until the deadline: `ETIMEDOUT` once it has passed, with the mutex taken again. An armed timeout
/// is dropped.
KO_EXPORT int pthread_cond_timedwait(_sync* condition, _sync* mutex, unsigned long long deadlineNs);

/// Wakes one waiter, if there is one. The caller need not own the mutex. Enters the kernel only when somebody
/// waits.
KO_EXPORT int pthread_cond_signal(_sync* condition);

/// Wakes all waiters.
KO_EXPORT int pthread_cond_broadcast(_sync* condition);

/// Ends the use of a condition variable and leaves the record all zero. Waits for threads that were woken to
/// leave it. \return 0; `EBUSY` while threads wait (nothing changes then).
KO_EXPORT int pthread_cond_destroy(_sync* condition);

/// Unnamed semaphores on `_sync` records, under the platform's names. These return 0, or -1 with `errno`. A
/// record that is not a semaphore (all zero above all) is refused with `EINVAL`, so a semaphore has to be
/// created before its use and fails safely after its end. A semaphore has no owner: a unit that a thread or
/// process took stays taken when that ends. What happened before a post is seen by who takes its unit. No
/// call takes an armed timeout; the waiting ones drop it. Waits end when the thread is terminated.

/// The highest value of a semaphore.
constexpr unsigned int SEMAPHORE_VALUE_MAX = 32767U;

/// Creates a semaphore. \param shared 0, or 1 when other processes use the record. \param value from 0 to
/// SEMAPHORE_VALUE_MAX; `EINVAL` above it.
KO_EXPORT int sem_init(_sync* semaphore, int shared, unsigned int value);

/// Ends the use of a semaphore and leaves the record all zero. `EBUSY` while threads wait for it (nothing
/// changes then). A thread of another process that was killed while it waited counts for ever, and so do
/// those of the parent in a forked child: create such a semaphore anew.
KO_EXPORT int sem_destroy(_sync* semaphore);

/// Reads the value, which other threads may change at any moment. \param value receives it.
KO_EXPORT int sem_getvalue(_sync* semaphore, int* value);

/// Adds a unit and wakes a waiter, if there is one; enters the kernel only then. `EOVERFLOW` at the highest
/// value. Another thread may destroy the semaphore as soon as it has taken the unit.
KO_EXPORT int sem_post(_sync* semaphore);

/// Takes a unit; `EAGAIN` when there is none.
KO_EXPORT int sem_trywait(_sync* semaphore);

/// Waits for a unit and takes it. `EINTR` when a signal handler interrupted the wait.
KO_EXPORT int sem_wait(_sync* semaphore);

/// The same until the deadline. `ETIMEDOUT` once it has passed; a unit that is there is taken even then.
KO_EXPORT int sem_timedwait_monotonic(_sync* semaphore, unsigned long long deadlineNs);

} // namespace KoPlatform
