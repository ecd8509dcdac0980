#include "pf/util/CKoPerformanceCheck.h"

#include "pf/oswrapper/CKoAsserter.h"

#include <type_traits>

namespace
{

constexpr unsigned long long NS_IN_SECOND = 1000000000ULL;
constexpr unsigned long long NS_IN_MS = 1000000ULL;
constexpr unsigned long long NS_IN_MICROSECOND = 1000ULL;

/// Lines that the reports name: of a wrong state, and of an unknown kind of clock.
enum ReportLine : unsigned int
{
    START_STATE = 123,
    START_CLOCK = 142,
    PAUSE_STATE = 154,
    PAUSE_CLOCK = 173,
    RESUME_STATE = 186,
    RESUME_CLOCK = 204,
    STOP_STATE = 216,
    STOP_CLOCK = 235
};

void require(bool isAllowed, ReportLine line)
{
    if (!isAllowed)
    {
        doCheapAssert(line, "CKoPerformanceCheck");
    }
}

} // namespace

static_assert(sizeof(CKoPerformanceCheck) == 40 && std::is_trivially_copyable_v<CKoPerformanceCheck>,
              "four numbers, two counts and the clock");

CKoPerformanceCheck::CKoPerformanceCheck()
    : m_processId(0)
    , m_threadId(0)
    , m_kind(REAL_TIME)
    , m_state(NEW)
    , m_begin(0ULL)
    , m_accumulated(0ULL)
    , m_clockId(0)
{
}

void CKoPerformanceCheck::start()
{
    require(m_state == NEW || m_state == STOPPED, START_STATE);
    m_accumulated = 0ULL;
    beginNow(START_CLOCK);
    m_state = STARTED;
}

void CKoPerformanceCheck::pause()
{
    require(m_state == NEW || m_state == STARTED || m_state == RESUMED, PAUSE_STATE);
    addSinceBegin(PAUSE_CLOCK);
    m_state = PAUSED;
}

void CKoPerformanceCheck::resume()
{
    require(m_state == NEW || m_state == PAUSED || m_state == STOPPED, RESUME_STATE);
    beginNow(RESUME_CLOCK);
    m_state = RESUMED;
}

unsigned long long CKoPerformanceCheck::stop()
{
    require(m_state == STARTED || m_state == PAUSED || m_state == RESUMED, STOP_STATE);
    if (m_state == STARTED || m_state == RESUMED)
    {
        addSinceBegin(STOP_CLOCK);
    }
    m_state = STOPPED;
    return m_accumulated;
}

SKoTimeBreakdown CKoPerformanceCheck::translate(unsigned long long ns)
{
    const unsigned long long belowSecond = ns % NS_IN_SECOND;
    const unsigned long long belowMs = belowSecond % NS_IN_MS;
    return {static_cast<unsigned int>(ns / NS_IN_SECOND), static_cast<unsigned int>(belowSecond / NS_IN_MS),
            static_cast<unsigned int>(belowMs / NS_IN_MICROSECOND),
            static_cast<unsigned int>(belowMs % NS_IN_MICROSECOND)};
}

/// The check's clock. \return false for an unknown kind, which is reported; `now` is 0 then.
bool CKoPerformanceCheck::readNow(unsigned long long& now, unsigned int line) const
{
    switch (m_kind)
    {
    case REAL_TIME:
        now = getRealTime();
        return true;
    case THREAD_TIME:
        now = getThreadTime();
        return true;
    case PROCESS_TIME:
        now = getProcessTime();
        return true;
    default:
        doCheapAssert(line, "CKoPerformanceCheck");
        now = 0ULL;
        return false;
    }
}

void CKoPerformanceCheck::beginNow(unsigned int line)
{
    unsigned long long now = 0ULL;
    if (readNow(now, line))
    {
        m_begin = now;
    }
}

void CKoPerformanceCheck::addSinceBegin(unsigned int line)
{
    unsigned long long now = 0ULL;
    readNow(now, line);
    m_accumulated += now - m_begin;
}
