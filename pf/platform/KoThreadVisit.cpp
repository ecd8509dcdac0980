#include "pf/platform/KoThreadVisit.h"

#include "pf/platform/KoFutex.h"
#include "pf/platform/KoThreadWait.h"

namespace
{

constexpr unsigned long long LEAVE_NS = 1000000000ULL;
constexpr unsigned long long PAUSE_NS = 20000ULL;

} // namespace

namespace KoPlatform
{

void awaitVisitors(const void* object) noexcept
{
    if (!isVisited(object))
    {
        return;
    }
    const unsigned long long deadlineNs = futexClockNow() + LEAVE_NS;
    while (isVisited(object) && futexClockNow() < deadlineNs)
    {
        // The visitor may have a lower priority, so the processor has to be given to it.
        pauseFor(PAUSE_NS);
    }
}

} // namespace KoPlatform
