#include "pf/oswrapper/KoSemaphoreRecord.h"

#include "pf/platform/KoSyncRecord.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <cerrno>

namespace
{

using KoOSTypes::SEMHANDLE;
using namespace KoPlatform;

/// A new owner that took the lock over does not know whom the dead one was about to wake. The counters change
/// in single steps, so there is nothing to repair.
void wakeAfterTakeover(SEMHANDLE& h)
{
    if (takeOwnerDied(&h.lock))
    {
        pthread_cond_broadcast(&h.condition);
    }
}

} // namespace

namespace KoPrivate
{

int enterSemaphore(SEMHANDLE& h, unsigned long long deadlineNs)
{
    const int error = lockMutexUntil(h.lock, deadlineNs);
    if (error == 0)
    {
        wakeAfterTakeover(h);
    }
    return error;
}

int leaveSemaphore(SEMHANDLE& h)
{
    return pthread_mutex_unlock(&h.lock);
}

bool takeUnit(SEMHANDLE& h)
{
    // Acquire pairs with the release in giveUnits; the order of the load with beginWait is told above.
    unsigned int count = __atomic_load_n(&h.count, __ATOMIC_SEQ_CST);
    while (count != 0U)
    {
        if (__atomic_compare_exchange_n(&h.count, &count, count - 1U, true, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED))
        {
            return true;
        }
    }
    return false;
}

bool giveUnits(SEMHANDLE& h, unsigned int units)
{
    // Relaxed: the exchange compares again.
    unsigned int count = __atomic_load_n(&h.count, __ATOMIC_RELAXED);
    unsigned int added = 0U;
    do
    {
        // A unit that is dropped is exchanged as well: who takes the one that is there sees what the caller
        // has done before.
        added = count < h.maximum ? std::min(units, h.maximum - count) : 0U;
        // Its release pairs with the acquire in takeUnit, its order with the look for waiters is told above.
    } while (!__atomic_compare_exchange_n(&h.count, &count, count + added, true, __ATOMIC_SEQ_CST,
                                          __ATOMIC_RELAXED));
    return added != 0U;
}

bool hasWaiters(const SEMHANDLE& h)
{
    return __atomic_load_n(&h.waiters, __ATOMIC_SEQ_CST) != 0U;
}

int wakeWaiter(SEMHANDLE& h)
{
    return wakeAnyWaiter(h.condition);
}

void beginWait(SEMHANDLE& h)
{
    __atomic_fetch_add(&h.waiters, 1U, __ATOMIC_SEQ_CST);
}

void endWait(SEMHANDLE& h)
{
    // Relaxed: one waiter too many costs a needless signal.
    __atomic_fetch_sub(&h.waiters, 1U, __ATOMIC_RELAXED);
}

SWaitResult sleepInSemaphore(SEMHANDLE& h, unsigned long long deadlineNs)
{
    const ConditionDeadlines deadlines = {deadlineNs, deadlineNs, deadlineNs};
    int relockError = 0;
    const int error = waitForCondition(h.condition, h.lock, deadlines, relockError);
    endWait(h);
    if (relockError != 0)
    {
        // The wake-up that this thread may have got goes to another one, and the unit with it.
        wakeWaiter(h);
    }
    if (relockError == ECANCELED)
    {
        endCallingThread();
    }
    if (relockError != 0)
    {
        return SWaitResult{relockError, false};
    }
    wakeAfterTakeover(h);
    return SWaitResult{error, true};
}

} // namespace KoPrivate
