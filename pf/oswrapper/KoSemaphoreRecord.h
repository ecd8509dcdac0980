#pragma once

#include "pf/oswrapper/KoOSTypes.h"

/// What the semaphores and the barrier do inside of a semaphore's record. The functions that need the
/// record's lock say so.
///
/// The counters change atomically, so that who finds the lock free and nobody waiting need not take it.
/// Whoever is about to sleep counts itself as a waiter and then looks for units once more; whoever gives a
/// unit then looks for waiters. Both pairs are sequentially consistent, so one of the two sees the other.
namespace KoPrivate
{

/// Takes the lock until the deadline (nanoseconds of the monotonic clock). What a dead owner may have kept to
/// itself is made known to the waiters. \return 0 or an error number.
int enterSemaphore(KoOSTypes::SEMHANDLE& h, unsigned long long deadlineNs);

/// Gives the caller's lock back. \return 0 or an error number.
int leaveSemaphore(KoOSTypes::SEMHANDLE& h);

/// Takes a unit if there is one.
bool takeUnit(KoOSTypes::SEMHANDLE& h);

/// Gives as many units as fit. \return whether any did.
bool giveUnits(KoOSTypes::SEMHANDLE& h, unsigned int units);

/// Whether threads wait, or a killed one counts as waiting.
bool hasWaiters(const KoOSTypes::SEMHANDLE& h);

/// Wakes a waiter, if there is one. Who takes a unit without having slept needs no wake-up, so it does not
/// matter whom this one reaches. \return 0 or an error number.
int wakeWaiter(KoOSTypes::SEMHANDLE& h);

/// How a wait inside of the record ended.
struct SWaitResult
{
    int error;   ///< 0 or an error number
    bool inside; ///< whether the lock is the caller's
};

/// Counts the caller, which owns the lock, as a waiter, or not any more.
void beginWait(KoOSTypes::SEMHANDLE& h);
void endWait(KoOSTypes::SEMHANDLE& h);

/// Gives the lock back, sleeps until a wake-up, which may be nobody's, and takes the lock again. The caller
/// is a counted waiter, and none afterwards. Ends the thread if that is requested.
SWaitResult sleepInSemaphore(KoOSTypes::SEMHANDLE& h, unsigned long long deadlineNs);

/// Waits inside of the record, whose lock the caller owns, until a condition holds.
template <class Condition>
SWaitResult waitInSemaphore(KoOSTypes::SEMHANDLE& h, unsigned long long deadlineNs, Condition holds)
{
    SWaitResult result = {0, true};
    while (result.error == 0 && !holds())
    {
        beginWait(h);
        if (holds())
        {
            endWait(h);
            break;
        }
        result = sleepInSemaphore(h, deadlineNs);
    }
    return result;
}

} // namespace KoPrivate
