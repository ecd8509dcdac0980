#include "pf/oswrapper/KoSemaphoreAccess.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoSemaphoreRecord.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoThreadVisit.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <cerrno>

namespace
{

using KoOSTypes::SEMHANDLE;
using namespace KoPrivate;

constexpr const char* SOURCE = "KoSemaphoreAccess";
constexpr int WITHOUT_LIMIT = -1;

/// The attributes of the lock and the condition, while a record is created.
struct SAttributes
{
    KoPlatform::SyncAttributes mutex = {};
    KoPlatform::SyncAttributes condition = {};

    explicit SAttributes(bool shared)
    {
        const int enabled = shared ? 1 : 0;
        valid = KoPlatform::pthread_mutexattr_init(&mutex) == 0 &&
                KoPlatform::pthread_condattr_init(&condition) == 0 &&
                KoPlatform::pthread_mutexattr_setpshared(&mutex, enabled) == 0 &&
                KoPlatform::pthread_condattr_setpshared(&condition, enabled) == 0;
    }
    ~SAttributes()
    {
        KoPlatform::pthread_condattr_destroy(&condition);
        KoPlatform::pthread_mutexattr_destroy(&mutex);
    }
    SAttributes(const SAttributes&) = delete;
    SAttributes& operator=(const SAttributes&) = delete;

    bool valid = false;
};

/// Creates what the platform provides. \return false, with the reason logged, when that failed.
bool createLockAndCondition(SEMHANDLE& h, const SAttributes& attributes)
{
    if (!attributes.valid)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed initializing mutex/condition attributes.");
        return false;
    }
    int error = KoPlatform::pthread_mutex_init(&h.lock, &attributes.mutex);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed to create mutex: error=%d", error);
        return false;
    }
    error = KoPlatform::pthread_cond_init(&h.condition, &attributes.condition);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed to create condition variable: error=%d", error);
        KoPlatform::pthread_mutex_destroy(&h.lock);
        return false;
    }
    return true;
}

bool isValid(const SEMHANDLE& h)
{
    // Relaxed: who uses a record knows by other means that it was created; this only catches mistakes.
    return __atomic_load_n(&h.valid, __ATOMIC_RELAXED) == 1;
}

/// Whether nobody is inside of the record. Relaxed: the counters do not depend on the lock.
bool isQuiet(const SEMHANDLE& h)
{
    return __atomic_load_n(&h.lock.owner, __ATOMIC_RELAXED) == 0U;
}

/// \return 0, `EAGAIN`, or why the record could not be entered at once.
int tryUnit(SEMHANDLE& h)
{
    const int error = KoPlatform::pthread_mutex_trylock(&h.lock);
    if (error != 0)
    {
        return error;
    }
    const bool taken = takeUnit(h);
    const int leaveError = leaveSemaphore(h);
    if (leaveError != 0)
    {
        return leaveError;
    }
    return taken ? 0 : EAGAIN;
}

/// Waits for a unit until the deadline.
int waitForUnit(SEMHANDLE& h, unsigned long long deadlineNs)
{
    const int error = enterSemaphore(h, deadlineNs);
    if (error != 0)
    {
        return error;
    }
    const SWaitResult result = waitInSemaphore(h, deadlineNs, [&h] { return takeUnit(h); });
    if (!result.inside)
    {
        return result.error;
    }
    const int leaveError = leaveSemaphore(h);
    const bool isOrdinary = result.error == 0 || result.error == ETIMEDOUT;
    return leaveError != 0 && isOrdinary ? leaveError : result.error;
}

int takeSlowly(SEMHANDLE& h, int timeoutMs)
{
    if (!isValid(h))
    {
        return EINVAL;
    }
    if (timeoutMs == WITHOUT_LIMIT)
    {
        return waitForUnit(h, KoPlatform::NO_DEADLINE);
    }
    return timeoutMs > 0 ? waitForUnit(h, KoOperatingSystem::calculateKernelTimeout(timeoutMs)) : tryUnit(h);
}

/// Gives a unit with the lock held and wakes a waiter.
int giveInside(SEMHANDLE& h)
{
    const int error = enterSemaphore(h, KoPlatform::NO_DEADLINE);
    if (error != 0)
    {
        return error;
    }
    const bool mustWake = giveUnits(h, 1U) && hasWaiters(h);
    const int leaveError = leaveSemaphore(h);
    return mustWake ? wakeWaiter(h) : leaveError;
}

/// Wakes a waiter that came while a unit was given to nobody. It may be on its way into its sleep, which it
/// begins before it gives the lock back.
int wakeNewcomer(SEMHANDLE& h)
{
    // A thread that ended here would leave the waiter asleep beside the unit.
    const KoPlatform::TerminationDeferral deferral;
    if (enterSemaphore(h, KoPlatform::NO_DEADLINE) == 0)
    {
        leaveSemaphore(h);
    }
    return wakeWaiter(h);
}

} // namespace

namespace KoSemaphoreAccess
{

void create(SEMHANDLE& h, int initial, int maximum, bool shared)
{
    h = KoOSTypes::sInvalidSemHandle;
    if (maximum <= 0 || !createLockAndCondition(h, SAttributes(shared)))
    {
        doCheapAssert(__LINE__, SOURCE);
        return;
    }
    h.count = static_cast<unsigned int>(std::clamp(initial, 0, maximum));
    h.maximum = static_cast<unsigned int>(maximum);
    h.valid = 1;
}

bool lock(SEMHANDLE& h, int timeoutMs)
{
    if (timeoutMs > 0 || timeoutMs == WITHOUT_LIMIT)
    {
        // A timeout that was armed for another call must not end this one.
        KoPlatform::takeTimeout(0U, nullptr);
    }
    // A record that is not valid has no units.
    const int error = isQuiet(h) && takeUnit(h) ? 0 : takeSlowly(h, timeoutMs);
    KoOperatingSystem::setLastError(error);
    return error == 0;
}

int unlock(SEMHANDLE& h)
{
    if (!isValid(h))
    {
        return EINVAL;
    }
    const KoPlatform::ThreadVisit visit(&h);
    if (!isQuiet(h) || hasWaiters(h))
    {
        return giveInside(h);
    }
    return giveUnits(h, 1U) && hasWaiters(h) ? wakeNewcomer(h) : 0;
}

int destroy(SEMHANDLE& h)
{
    KoPlatform::awaitVisitors(&h);
    KoPlatform::pthread_cond_destroy(&h.condition);
    const int error = KoPlatform::pthread_mutex_destroy(&h.lock);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed to destroy semaphore: error=%d", error);
    }
    __atomic_store_n(&h.valid, 0, __ATOMIC_RELAXED);
    h.count = 0U;
    h.maximum = 0U;
    h.waiters = 0U;
    return error;
}

} // namespace KoSemaphoreAccess
