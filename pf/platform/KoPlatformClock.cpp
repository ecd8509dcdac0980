#include "pf/platform/KoPlatformClock.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

namespace
{

constexpr unsigned long long NS_PER_SECOND = 1000000000ULL;
constexpr unsigned long long NS_PER_MS = 1000000ULL;

unsigned long long toNanoseconds(const timespec& time)
{
    return static_cast<unsigned long long>(time.tv_sec) * NS_PER_SECOND +
           static_cast<unsigned long long>(time.tv_nsec);
}

} // namespace

namespace KoPlatform
{

int ClockTime(int clockId, const unsigned long long* newTime, unsigned long long* oldTime)
{
    // The host gives negative ids a meaning of its own.
    if (clockId < 0 || newTime != nullptr || oldTime == nullptr)
    {
        errno = EINVAL;
        return -1;
    }
    timespec now = {};
    if (clock_gettime(clockId == CLOCK_ID_MONOTONIC ? CLOCK_MONOTONIC : clockId, &now) != 0)
    {
        return -1;
    }
    *oldTime = toNanoseconds(now);
    return 0;
}

unsigned long long monotonicNow()
{
    const int savedErrno = errno;
    unsigned long long now = 0ULL;
    ClockTime(CLOCK_ID_MONOTONIC, nullptr, &now);
    errno = savedErrno;
    return now;
}

unsigned int delayUntil(unsigned long long deadlineNs)
{
    timespec until = {};
    until.tv_sec = static_cast<time_t>(deadlineNs / NS_PER_SECOND);
    until.tv_nsec = static_cast<long>(deadlineNs % NS_PER_SECOND);
    if (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == 0)
    {
        return 0U;
    }
    const unsigned long long now = monotonicNow();
    const unsigned long long left =
        deadlineNs > now ? (deadlineNs - now + NS_PER_MS - 1ULL) / NS_PER_MS : 0ULL;
    return static_cast<unsigned int>(std::min<unsigned long long>(left, UINT_MAX));
}

unsigned int delay(unsigned int ms)
{
    return delayUntil(monotonicNow() + ms * NS_PER_MS);
}

} // namespace KoPlatform
