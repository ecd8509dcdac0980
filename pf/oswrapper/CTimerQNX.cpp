#include "pf/oswrapper/CTimer.h"

#include "pf/oswrapper/KoTimerSupport.h"
#include "pf/platform/KoPlatformTimer.h"

CTimerBase::CTimerBase(CTimerManager& manager)
    : m_timerId(-1)
    , m_manager(manager)
{
    m_timerId = KoPrivate::createPulseTimer(manager.connectionId(), this);
    if (m_timerId == -1)
    {
        KoError::fatalError(0, "Cannot create timer");
    }
}

CTimerBase::~CTimerBase()
{
    doStop();
    if (KoPlatform::TimerDestroy(m_timerId) != 0)
    {
        KoError::fatalError(0, "Cannot delete timer");
    }
}

bool CTimerBase::doStart(unsigned int ms, bool singleShot)
{
    const unsigned long long firstNs = ms * KoPrivate::TIMER_NS_PER_MS;
    if (!KoPrivate::setPulseTimer(m_timerId, 0, firstNs, singleShot ? 0ULL : firstNs))
    {
        KoError::fatalError(0, "Cannot start timer");
    }
    return true;
}

void CTimerBase::doStop()
{
    if (!KoPrivate::setPulseTimer(m_timerId, 0, 0ULL, 0ULL))
    {
        KoError::fatalError(0, "Cannot stop timer");
    }
}
