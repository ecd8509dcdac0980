#include "pf/oswrapper/CKoOSUtility.h"

namespace
{

constexpr long NS_PER_MS = 1000000L;
constexpr long NS_PER_SECOND = 1000000000L;
constexpr int MS_PER_SECOND = 1000;

} // namespace

void CKoOSUtility::realTimeAfter(int ms, long long& seconds, long& nanoseconds)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const int wait = ms < 0 ? 0 : ms;
    seconds = now.tv_sec + wait / MS_PER_SECOND;
    nanoseconds = now.tv_nsec + (wait % MS_PER_SECOND) * NS_PER_MS;
    if (nanoseconds >= NS_PER_SECOND)
    {
        nanoseconds -= NS_PER_SECOND;
        ++seconds;
    }
}
