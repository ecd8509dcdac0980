#include "pf/oswrapper/CLogicalTimerManager.h"

#include "pf/oswrapper/CLogicalTimer.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoTimerSupport.h"
#include "pf/oswrapper/TKoInplaceFactory_0.h"

namespace
{

constexpr const char* SOURCE = "CLogicalTimerManager";

/// The present on the scale of expiries.
unsigned long long now()
{
    return KoOperatingSystem::getMonotonicTime(nullptr) - KoOperatingSystem::getMonotonicBias(nullptr);
}

} // namespace

/// Holds the manager's lock, if it has one, unless the caller does so already: then it is in a callback, and
/// the pass gives the lock back.
class CLogicalTimerManager::Guard : public CKoNonCopyable
{
public:
    explicit Guard(Lock& lock)
        : m_section(Lock::SKoHidden::is_initialized(lock) && !lock.get()->isHeldByCaller() ? lock.get()
                                                                                           : nullptr)
    {
        if (m_section != nullptr)
        {
            m_section->lock();
        }
    }
    ~Guard()
    {
        if (m_section != nullptr)
        {
            m_section->unlock();
        }
    }

private:
    CKoCriticalSection* m_section;
};

/// A handling pass. The timers that are due move from the front of the manager's list to one of the pass,
/// and each, when its turn comes, to the list of those that fired. A callback may take any timer off
/// whichever list it is on. What the pass still has when it ends, even by an exception, goes back.
class CLogicalTimerManager::Pass : public CKoNonCopyable
{
public:
    explicit Pass(CLogicalTimerManager& manager)
        : m_manager(manager)
    {
        m_manager.m_inPass = 1U;
        takeDue(now());
    }
    ~Pass()
    {
        List& timers = m_manager.m_timers;
        timers.splice(timers.begin(), m_due.begin(), m_due.end());
        m_manager.resort(m_fired);
        m_manager.m_inPass = 0U;
        m_manager.rearm();
    }

    /// \return false when no due timer is left.
    bool fireNext();

private:
    void takeDue(unsigned long long time);

    CLogicalTimerManager& m_manager;
    List m_due;
    List m_fired;
};

/// A started timer is never due yet, so the due ones are the front of the list as it is now.
void CLogicalTimerManager::Pass::takeDue(unsigned long long time)
{
    const List::iterator first = m_manager.m_timers.begin();
    List::iterator last = first;
    while (last != m_manager.m_timers.end() && last->m_expiry <= time)
    {
        last->m_state = CLogicalTimer::IDLE;
        ++last;
    }
    m_due.splice(m_due.end(), first, last);
}

bool CLogicalTimerManager::Pass::fireNext()
{
    if (m_due.isEmpty())
    {
        return false;
    }
    CLogicalTimer& timer = *m_due.front();
    m_due.erase(m_due.begin());
    m_fired.insert(m_fired.end(), timer);
    // Counted from the last expiry and not from now: a periodic timer does not drift.
    timer.m_expiry = timer.m_period != 0ULL ? timer.m_expiry + timer.m_period : 0ULL;
    timer.m_state = CLogicalTimer::FIRED;
    timer.handleTimeout(); // the timer may be gone now
    return true;
}

CLogicalTimerManager::CLogicalTimerManager(int timeoutMs, bool threadSafe)
    : m_timeoutMs(timeoutMs)
    , m_channelId(-1)
    , m_connectionId(-1)
    , m_timerId(-1)
    , m_inPass(0U)
{
    if (threadSafe)
    {
        m_lock.construct(KoPrivate::TKoInplaceFactory_0());
    }
    create();
}

CLogicalTimerManager::~CLogicalTimerManager()
{
    if (!m_timers.isEmpty())
    {
        doAssert(__LINE__, SOURCE, "Cannot delete timer manager since timers are still active");
        abandonTimers();
    }
    destroy();
    m_lock.destroy();
}

void CLogicalTimerManager::registerTimer(CLogicalTimer& timer, unsigned int ms, bool singleShot)
{
    const Guard guard(m_lock);
    if (timer.m_manager != this)
    {
        doCheapAssert(__LINE__, SOURCE);
        return;
    }
    const unsigned long long intervalNs = ms * KoPrivate::TIMER_NS_PER_MS;
    doUnregisterTimer(timer);
    timer.m_expiry = now() + intervalNs;
    timer.m_period = singleShot ? 0ULL : intervalNs;
    doRegisterTimer(timer);
}

void CLogicalTimerManager::unregisterTimer(CLogicalTimer& timer)
{
    const Guard guard(m_lock);
    if (timer.m_manager != this)
    {
        doCheapAssert(__LINE__, SOURCE);
        return;
    }
    doUnregisterTimer(timer);
}

int CLogicalTimerManager::performWork()
{
    _pulse pulse = {};
    return KoPrivate::receiveTimerPulse(m_channelId, m_timeoutMs, pulse) ? handleSignalledTimer() : 0;
}

int CLogicalTimerManager::handleSignalledTimer()
{
    const Guard guard(m_lock);
    if (m_timers.isEmpty() || m_inPass != 0U)
    {
        return 0;
    }
    int count = 0;
    Pass pass(*this);
    while (pass.fireNext())
    {
        ++count;
    }
    return count;
}

/// The kernel's timer follows the front of the list, so only a new front needs it.
void CLogicalTimerManager::doRegisterTimer(CLogicalTimer& timer)
{
    insertSorted(timer, m_timers.end());
    if (m_timers.front() == &timer)
    {
        rearm();
    }
}

/// Whether a timer is registered is told by its hook: one that fired last has no expiry any more, but
/// is on a list until the pass ends.
void CLogicalTimerManager::doUnregisterTimer(CLogicalTimer& timer)
{
    if (!timer.isLinked())
    {
        return;
    }
    const List::iterator position(&timer);
    const bool wasFirst = position == m_timers.begin();
    m_timers.erase(position);
    timer.m_expiry = 0ULL;
    timer.m_period = 0ULL;
    timer.m_state = CLogicalTimer::IDLE;
    if (wasFirst)
    {
        rearm();
    }
}

/// Before the first timer that expires later: looked for from both ends, of which one is usually near.
/// \param end a place that the timer does not belong behind.
CLogicalTimerManager::List::iterator CLogicalTimerManager::insertSorted(CLogicalTimer& timer,
                                                                        List::iterator end)
{
    List::iterator front = m_timers.begin();
    while (front != end)
    {
        List::iterator last = end;
        --last;
        if (last->m_expiry <= timer.m_expiry)
        {
            front = end;
            break;
        }
        if (front->m_expiry > timer.m_expiry)
        {
            break;
        }
        end = last;
        ++front;
    }
    return m_timers.insert(front, timer);
}

/// Puts the periodic timers of a pass back to their places, each behind those of the same expiry; the others
/// are no longer registered. They go back in order, so that none is looked for behind the one before.
void CLogicalTimerManager::resort(List& fired)
{
    for (List::iterator position = fired.begin(); position != fired.end();)
    {
        CLogicalTimer& timer = *position;
        const bool isPeriodic = timer.m_expiry != 0ULL;
        timer.m_state = isPeriodic ? CLogicalTimer::REINSERTED : CLogicalTimer::IDLE;
        position = isPeriodic ? ++position : fired.erase(position);
    }
    sortByExpiry(fired);
    List::iterator place = m_timers.end();
    while (!fired.isEmpty())
    {
        List::iterator last = fired.end();
        CLogicalTimer& timer = *--last;
        fired.erase(last);
        place = insertSorted(timer, place);
    }
}

/// Merges the runs that are in order already: one only, when all have the same period.
void CLogicalTimerManager::sortByExpiry(List& timers)
{
    // At index i are 2 to the power of i runs, merged to one; the higher, the earlier.
    constexpr std::size_t LEVELS = 32;
    List merged[LEVELS];
    while (!timers.isEmpty())
    {
        List run;
        run.splice(run.end(), timers.begin(), endOfRun(timers));
        std::size_t level = 0;
        for (; !merged[level].isEmpty(); ++level)
        {
            mergeBehind(merged[level], run);
        }
        merged[level].splice(merged[level].end(), run.begin(), run.end());
    }
    for (List& run : merged)
    {
        mergeBehind(run, timers);
    }
}

CLogicalTimerManager::List::iterator CLogicalTimerManager::endOfRun(List& timers)
{
    List::iterator before = timers.begin();
    List::iterator end = before;
    while (++end != timers.end() && before->m_expiry <= end->m_expiry)
    {
        before = end;
    }
    return end;
}

/// Moves all of `earlier` to its places in `later`, before those of the same expiry.
void CLogicalTimerManager::mergeBehind(List& earlier, List& later)
{
    List::iterator position = later.begin();
    while (!earlier.isEmpty() && position != later.end())
    {
        List::iterator last = earlier.begin();
        while (last != earlier.end() && last->m_expiry <= position->m_expiry)
        {
            ++last;
        }
        later.splice(position, earlier.begin(), last);
        if (!earlier.isEmpty())
        {
            const unsigned long long expiry = earlier.front()->m_expiry;
            while (position != later.end() && position->m_expiry < expiry)
            {
                ++position;
            }
        }
    }
    later.splice(later.end(), earlier.begin(), earlier.end());
}

void CLogicalTimerManager::rearm()
{
    if (m_inPass != 0U)
    {
        return;
    }
    if (m_timers.isEmpty())
    {
        cancel();
    }
    else
    {
        start();
    }
}

/// Their destructors must not come back to a manager that is gone.
void CLogicalTimerManager::abandonTimers()
{
    while (!m_timers.isEmpty())
    {
        CLogicalTimer& timer = *m_timers.front();
        m_timers.erase(m_timers.begin());
        timer.m_manager = nullptr;
        timer.m_expiry = 0ULL;
        timer.m_period = 0ULL;
        timer.m_state = CLogicalTimer::IDLE;
    }
}
