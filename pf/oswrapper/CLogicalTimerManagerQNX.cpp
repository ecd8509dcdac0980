#include "pf/oswrapper/CLogicalTimerManager.h"

#include "pf/oswrapper/CLogicalTimer.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoTimerSupport.h"
#include "pf/platform/KoPlatformTimer.h"

#include <cstddef>

namespace
{

constexpr const char* SOURCE = "CLogicalTimerManager";

} // namespace

/// The members stand one behind the other without gaps.
struct CLogicalTimerManager::SLayout
{
    static constexpr std::size_t LIST = 2 * sizeof(void*);
    static_assert(offsetof(CLogicalTimerManager, m_timeoutMs) == LIST);
    static_assert(offsetof(CLogicalTimerManager, m_channelId) == LIST + 4);
    static_assert(offsetof(CLogicalTimerManager, m_connectionId) == LIST + 8);
    static_assert(offsetof(CLogicalTimerManager, m_timerId) == LIST + 12);
    static_assert(offsetof(CLogicalTimerManager, m_inPass) == LIST + 16);
    static_assert(offsetof(CLogicalTimerManager, m_lock) == LIST + 20);
    static_assert(sizeof(CLogicalTimerManager) == LIST + 32);
};

void CLogicalTimerManager::create()
{
    m_channelId = KoPrivate::createTimerChannel();
    if (m_channelId == -1)
    {
        doCheapAssert(__LINE__, SOURCE);
    }
    m_connectionId = KoPrivate::connectToTimerChannel(m_channelId);
    if (m_connectionId == -1)
    {
        doCheapAssert(__LINE__, SOURCE);
    }
    m_timeoutMs = KoPrivate::pollTimeout(m_timeoutMs);
    m_timerId = KoPrivate::createPulseTimer(m_connectionId, this);
    if (m_timerId == -1)
    {
        doCheapAssert(__LINE__, SOURCE);
    }
}

void CLogicalTimerManager::destroy()
{
    KoPlatform::TimerDestroy(m_timerId);
    KoPlatform::ConnectDetach(m_connectionId);
    KoPlatform::ChannelDestroy(m_channelId);
}

/// Sets the kernel's timer for the first of the list.
void CLogicalTimerManager::start()
{
    const unsigned long long expiryNs =
        m_timers.front()->m_expiry + KoOperatingSystem::getMonotonicBias(nullptr);
    if (!KoPrivate::setPulseTimer(m_timerId, TIMER_ABSTIME, expiryNs, 0ULL))
    {
        doCheapAssert(__LINE__, SOURCE);
    }
}

void CLogicalTimerManager::cancel()
{
    KoPrivate::setPulseTimer(m_timerId, 0, 0ULL, 0ULL);
}
