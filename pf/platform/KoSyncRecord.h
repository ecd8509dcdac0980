#pragma once

#include "pf/platform/KoFutex.h"
#include "pf/platform/KoPlatformSync.h"

/// What the mutex, condition-variable and semaphore calls share about `_sync` records.
namespace KoPlatform
{

/// Map of a count word: the kind in the upper bits, below it how often a recursive mutex is locked again, or
/// the number of a condition variable's waiters. Attribute records use the same bits of kind.
constexpr unsigned int SYNC_RECURSIVE = 0x80000000U;
constexpr unsigned int SYNC_SHARED = 0x40000000U;
constexpr unsigned int SYNC_OWNER_DIED = 0x20000000U; ///< taken over from a dead owner, not told yet
constexpr unsigned int SYNC_ATTRIBUTES = 0x10000000U; ///< an attribute record that is initialised
constexpr unsigned int SYNC_SEMAPHORE = 0x08000000U;  ///< a semaphore
constexpr unsigned int SYNC_KIND = SYNC_RECURSIVE | SYNC_SHARED;
constexpr unsigned int SYNC_COUNT = 0x00FFFFFFU;

/// Relaxed: the kind never changes while the record is in use, and of the rest only the owner's view matters.
inline unsigned int countWord(const _sync& sync)
{
    return __atomic_load_n(&sync.count, __ATOMIC_RELAXED);
}

/// Relaxed: whether a thread owns the word is settled by compare-and-swap or by the thread itself.
inline unsigned int ownerWord(const _sync& sync)
{
    return __atomic_load_n(&sync.owner, __ATOMIC_RELAXED);
}

inline bool isShared(const _sync& sync)
{
    return (countWord(sync) & SYNC_SHARED) != 0U;
}

inline bool isOwnedBy(const _sync& sync, unsigned int kernelId)
{
    return (ownerWord(sync) & OWNER_ID) == kernelId;
}

/// Takes or waits for a mutex until the deadline; see pthread_mutex_lock.
int lockMutexUntil(_sync& mutex, unsigned long long deadlineNs);

/// The same for a thread that does not own the mutex and was just woken by one that may still own it, and is
/// about to give it back. `ECANCELED`, without the mutex, when the thread is to end, which is left to the
/// caller: it may have to pass its wake-up on.
int relockMutexUntil(_sync& mutex, unsigned long long deadlineNs);

/// Gives a mutex back that the caller owns, however often it was locked. \return how often it was locked
/// again.
unsigned int releaseMutex(_sync& mutex);

/// Makes a mutex that was just taken count as locked again so many times.
void restoreMutex(_sync& mutex, unsigned int lockedAgain);

/// Until when a thread waits for a wake-up, and then for the mutex.
struct ConditionDeadlines
{
    unsigned long long wakeNs;
    unsigned long long relockNs;     ///< after a wake-up
    unsigned long long relockLateNs; ///< when none came in time
};

/// As pthread_cond_wait, for callers that have books of their own to put in order. \param relockError
/// receives 0 when the mutex is the caller's afterwards, else why it is not. \return the wait's outcome;
/// `ECANCELED`, without the mutex, when the thread is to end, which is left to the caller.
int waitForCondition(_sync& condition, _sync& mutex, const ConditionDeadlines& deadlines, int& relockError);

/// As pthread_cond_signal, at half its cost, for callers to whom it does not matter if a thread is woken that
/// began to wait at this very moment: whoever it is looks at what has changed, and what it leaves is not
/// lost.
int wakeAnyWaiter(_sync& condition);

} // namespace KoPlatform
