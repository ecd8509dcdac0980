#include "pf/util/CKoPerformanceCheck.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformCpuClock.h"

namespace
{

constexpr int NO_CLOCK = -1; ///< cannot be read

/// Lines that the reports name.
enum ReportLine : unsigned int
{
    THREAD_CLOCK = 46,
    PROCESS_CLOCK = 55,
    THREAD_READ = 68,
    PROCESS_READ = 79
};

void report(unsigned int line)
{
    doCheapAssert(line, "CKoPerformanceCheckQNX");
}

} // namespace

CKoPerformanceCheck::CKoPerformanceCheck(int threadId)
    : CKoPerformanceCheck()
{
    const KoErrnoGuard errnoGuard;
    m_kind = THREAD_TIME;
    m_processId = KoOperatingSystem::getCurrentPID();
    m_threadId = threadId != 0 ? threadId : KoOperatingSystem::getCurrentTID();
    m_clockId = KoPlatform::ClockId(m_processId, m_threadId);
    if (m_clockId == NO_CLOCK)
    {
        report(THREAD_CLOCK);
    }
}

CKoPerformanceCheck::CKoPerformanceCheck(int processId, bool currentProcess)
    : CKoPerformanceCheck()
{
    m_kind = PROCESS_TIME;
    m_processId = currentProcess ? KoOperatingSystem::getCurrentPID() : processId;
    m_clockId = NO_CLOCK;
    if (KoPlatform::clock_getcpuclockid(m_processId, &m_clockId) != 0)
    {
        report(PROCESS_CLOCK);
    }
}

unsigned long long CKoPerformanceCheck::getRealTime() const
{
    return KoOperatingSystem::getSysPageTime();
}

unsigned long long CKoPerformanceCheck::getThreadTime() const
{
    return readCpuTime(THREAD_READ);
}

unsigned long long CKoPerformanceCheck::getProcessTime() const
{
    return readCpuTime(PROCESS_READ);
}

unsigned long long CKoPerformanceCheck::readCpuTime(unsigned int line) const
{
    const KoErrnoGuard errnoGuard;
    unsigned long long time = 0ULL;
    if (KoPlatform::ClockTime(m_clockId, nullptr, &time) != 0)
    {
        report(line);
        return 0ULL;
    }
    return time;
}
