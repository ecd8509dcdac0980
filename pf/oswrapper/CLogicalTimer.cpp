#include "pf/oswrapper/CLogicalTimer.h"

#include "pf/oswrapper/KoTimerSupport.h"

/// What a 32-bit target promises; a 64-bit one has the same members with larger pointers.
struct CLogicalTimer::SLayout
{
    static_assert(sizeof(CLogicalTimer) == (sizeof(void*) == 4 ? 40 : 56),
                  "hook and manager behind the table, then two times and the state");
};

CLogicalTimer::CLogicalTimer(CLogicalTimerManager& manager)
    : m_manager(&manager)
    , m_expiry(0ULL)
    , m_period(0ULL)
    , m_state(IDLE)
{
}

CLogicalTimer::~CLogicalTimer()
{
    stop();
}

bool CLogicalTimer::start(unsigned int ms, bool singleShot)
{
    if (ms == 0U || m_manager == nullptr)
    {
        return false;
    }
    m_manager->registerTimer(*this, ms, singleShot);
    return true;
}

void CLogicalTimer::stop()
{
    if (m_manager != nullptr)
    {
        m_manager->unregisterTimer(*this);
    }
}

void CLogicalTimer::handleTimeout()
{
    KoPrivate::runTimerCallback(*this);
}
