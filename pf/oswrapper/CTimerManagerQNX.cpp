#include "pf/oswrapper/CTimerManager.h"

#include "pf/containers/KoAlgorithm.h"
#include "pf/oswrapper/CTimer.h"
#include "pf/oswrapper/KoTimerSupport.h"

#include <cstddef>

/// The members stand one behind the other without gaps.
struct CTimerManager::SLayout
{
    static_assert(offsetof(CTimerManager, m_timeoutMs) == sizeof(void*), "the list is one link");
    static_assert(offsetof(CTimerManager, m_channelId) == sizeof(void*) + 4);
    static_assert(offsetof(CTimerManager, m_connectionId) == sizeof(void*) + 8);
    static_assert(sizeof(void*) != 4 || sizeof(CTimerManager) == 16);
};

CTimerManager::CTimerManager(int timeoutMs)
{
    m_channelId = KoPrivate::createTimerChannel();
    if (m_channelId == -1)
    {
        KoError::fatalError(0, "ChannelCreate failed");
    }
    m_connectionId = KoPrivate::connectToTimerChannel(m_channelId);
    if (m_connectionId == -1)
    {
        KoError::fatalError(0, "ConnectAttach failed");
    }
    m_timeoutMs = KoPrivate::pollTimeout(timeoutMs);
}

CTimerManager::~CTimerManager()
{
    if (!m_timers.isEmpty())
    {
        doAssert(__LINE__, "CTimerManager", "Cannot delete timer manager since timers are still available");
    }
    KoPlatform::ConnectDetach(m_connectionId);
    KoPlatform::ChannelDestroy(m_channelId);
}

void CTimerManager::registerTimer(CTimer& timer)
{
    m_timers.push_front(timer);
}

void CTimerManager::unregisterTimer(CTimer& timer)
{
    m_timers.erase(decltype(m_timers)::iterator(&timer));
}

bool CTimerManager::performWork()
{
    _pulse pulse = {};
    if (!KoPrivate::receiveTimerPulse(m_channelId, m_timeoutMs, pulse) || pulse.value.sival_ptr == nullptr)
    {
        return false;
    }
    // The timer may have been destroyed or stopped after it had sent the pulse.
    const auto timer =
        KoAlgorithm::find_if(m_timers.begin(), m_timers.end(), SKoPointerCmp(pulse.value.sival_ptr));
    if (timer == m_timers.end() || !timer->isActive())
    {
        return false;
    }
    timer->handleTimeout();
    return true;
}
