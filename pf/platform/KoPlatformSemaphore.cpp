#include "pf/platform/KoFailure.h"
#include "pf/platform/KoPlatformSync.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoSyncRecord.h"
#include "pf/platform/KoThreadWait.h"

#include <cerrno>
#include <climits>

// A semaphore's owner word holds the value in its lower bits and the number of waiting threads above, so that
// one step changes both: who posts learns at the same moment whether somebody has to be woken, and need not
// look at the record again, which may be gone once the unit is there to be taken.

namespace
{

using namespace KoPlatform;

constexpr unsigned int VALUE = SEMAPHORE_VALUE_MAX;
constexpr unsigned int ONE_WAITER = VALUE + 1U;
static_assert((VALUE & ONE_WAITER) == 0U, "value and waiters share a word");

bool isSemaphore(const _sync& semaphore)
{
    return (countWord(semaphore) & SYNC_SEMAPHORE) != 0U;
}

/// What has to be known to wake the sleepers of a semaphore, even of one that is gone.
struct SleepingPlace
{
    unsigned int* word;
    bool shared;
};

void wakeAll(void* place)
{
    const SleepingPlace& sleepers = *static_cast<SleepingPlace*>(place);
    futexWake(sleepers.word, INT_MAX, sleepers.shared);
}

/// Takes a unit if there is one. \param waiters ONE_WAITER if the caller is counted as a waiter and will not
/// be any more, else 0. Acquire pairs with the release in sem_post. \param word receives the word without a
/// unit.
bool takeUnit(_sync& semaphore, unsigned int waiters, unsigned int& word)
{
    word = ownerWord(semaphore);
    while ((word & VALUE) != 0U)
    {
        if (__atomic_compare_exchange_n(&semaphore.owner, &word, word - 1U - waiters, true, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED))
        {
            return true;
        }
    }
    return false;
}

/// Sleeps until there is a unit and takes it; the caller is counted as a waiter, and no more after success.
/// \return 0 or an error number; `ECANCELED` when the thread is to end.
int sleepForUnit(_sync& semaphore, unsigned long long deadlineNs)
{
    SleepingPlace place = {&semaphore.owner, isShared(semaphore)};
    const ThreadWait wait(&wakeAll, &place);
    while (!isTerminationRequested())
    {
        unsigned int word = 0U;
        if (takeUnit(semaphore, ONE_WAITER, word))
        {
            return 0;
        }
        const int error = futexWaitOnce(place.word, word, place.shared, deadlineNs);
        if (error != 0 && error != EAGAIN)
        {
            return error;
        }
    }
    return ECANCELED;
}

/// Counts the caller as a waiter no more. A wake-up that it got and did not follow goes to another one.
void leave(_sync& semaphore)
{
    // Relaxed: a unit that is there is taken by others.
    const unsigned int word = __atomic_sub_fetch(&semaphore.owner, ONE_WAITER, __ATOMIC_RELAXED);
    if ((word & VALUE) != 0U && word >= ONE_WAITER)
    {
        futexWake(&semaphore.owner, 1, isShared(semaphore));
    }
}

int waitUntil(_sync& semaphore, unsigned long long deadlineNs)
{
    // Relaxed: whether to sleep is decided by comparing the whole word again in the kernel.
    __atomic_fetch_add(&semaphore.owner, ONE_WAITER, __ATOMIC_RELAXED);
    const int error = sleepForUnit(semaphore, deadlineNs);
    if (error == 0)
    {
        return 0;
    }
    leave(semaphore);
    if (error == ECANCELED)
    {
        endCallingThread();
    }
    return failWith(error);
}

} // namespace

namespace KoPlatform
{

int sem_init(_sync* semaphore, int shared, unsigned int value)
{
    if (value > SEMAPHORE_VALUE_MAX)
    {
        return failWith(EINVAL);
    }
    semaphore->count = shared != 0 ? SYNC_SEMAPHORE | SYNC_SHARED : SYNC_SEMAPHORE;
    semaphore->owner = value;
    return 0;
}

int sem_destroy(_sync* semaphore)
{
    if (!isSemaphore(*semaphore))
    {
        return failWith(EINVAL);
    }
    if (ownerWord(*semaphore) >= ONE_WAITER)
    {
        return failWith(EBUSY);
    }
    *semaphore = _sync{0U, 0U};
    return 0;
}

int sem_getvalue(_sync* semaphore, int* value)
{
    if (!isSemaphore(*semaphore))
    {
        return failWith(EINVAL);
    }
    *value = static_cast<int>(ownerWord(*semaphore) & VALUE);
    return 0;
}

int sem_post(_sync* semaphore)
{
    if (!isSemaphore(*semaphore))
    {
        return failWith(EINVAL);
    }
    const bool shared = isShared(*semaphore);
    unsigned int word = ownerWord(*semaphore);
    do
    {
        if ((word & VALUE) == SEMAPHORE_VALUE_MAX)
        {
            return failWith(EOVERFLOW);
        }
        // Release pairs with the acquire of who takes the unit. Once this succeeds another thread may destroy
        // the semaphore.
    } while (!__atomic_compare_exchange_n(&semaphore->owner, &word, word + 1U, true, __ATOMIC_RELEASE,
                                          __ATOMIC_RELAXED));
    if (word >= ONE_WAITER)
    {
        futexWake(&semaphore->owner, 1, shared);
    }
    return 0;
}

int sem_trywait(_sync* semaphore)
{
    unsigned int word = 0U;
    if (!isSemaphore(*semaphore))
    {
        return failWith(EINVAL);
    }
    return takeUnit(*semaphore, 0U, word) ? 0 : failWith(EAGAIN);
}

int sem_wait(_sync* semaphore)
{
    takeTimeout(0U, nullptr);
    if (!isSemaphore(*semaphore))
    {
        return failWith(EINVAL);
    }
    unsigned int word = 0U;
    return takeUnit(*semaphore, 0U, word) ? 0 : waitUntil(*semaphore, NO_DEADLINE);
}

int sem_timedwait_monotonic(_sync* semaphore, unsigned long long deadlineNs)
{
    takeTimeout(0U, nullptr);
    if (!isSemaphore(*semaphore))
    {
        return failWith(EINVAL);
    }
    unsigned int word = 0U;
    if (takeUnit(*semaphore, 0U, word))
    {
        return 0;
    }
    return waitUntil(*semaphore, deadlineNs);
}

} // namespace KoPlatform
