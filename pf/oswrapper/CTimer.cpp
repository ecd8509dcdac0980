#include "pf/oswrapper/CTimer.h"

#include "pf/oswrapper/KoTimerSupport.h"

/// What a 32-bit target promises; a 64-bit one has the same members with larger pointers.
struct CTimer::SLayout
{
    static_assert(sizeof(CTimerBase) == (sizeof(void*) == 4 ? 12 : 24), "id and manager behind the table");
    static_assert(sizeof(CTimer) == (sizeof(void*) == 4 ? 20 : 40), "then the hook and the flag");
};

CTimer::CTimer(CTimerManager& manager)
    : CTimerBase(manager)
    , m_active(false)
{
    manager.registerTimer(*this);
}

CTimer::~CTimer()
{
    // A manager that ended before has taken its timers off the list.
    if (next != nullptr)
    {
        m_manager.unregisterTimer(*this);
    }
}

bool CTimer::start(unsigned int ms, bool singleShot)
{
    if (isActive())
    {
        stop();
    }
    m_active.store(true, std::memory_order_relaxed);
    return doStart(ms, singleShot);
}

void CTimer::stop()
{
    if (!isActive())
    {
        return;
    }
    doStop();
    m_active.store(false, std::memory_order_relaxed);
}

void CTimer::handleTimeout()
{
    KoPrivate::runTimerCallback(*this);
}

bool CTimer::isActive() const
{
    return m_active.load(std::memory_order_relaxed);
}
