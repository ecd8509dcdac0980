#include "pf/platform/KoPlatformClock.h"

#include "pf/platform/KoCpuClockId.h"
#include "pf/platform/KoFutex.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <ctime>

namespace
{

constexpr unsigned long long NS_PER_SECOND = 1000000000ULL;
constexpr unsigned long long NS_PER_MS = 1000000ULL;

/// Null while the kernel's clock is read. Acquire and release: whoever reads through a source sees what was
/// set up for it.
std::atomic<KoPlatform::ClockSource> sClockSource{nullptr};

unsigned long long toNanoseconds(const timespec& time)
{
    return static_cast<unsigned long long>(time.tv_sec) * NS_PER_SECOND +
           static_cast<unsigned long long>(time.tv_nsec);
}

void wakeSleeper(void* word)
{
    KoPlatform::futexWake(static_cast<unsigned int*>(word), 1, false);
}

/// Sleeps on a word that nobody changes, so that a thread can be woken that is to end.
int sleepUntil(unsigned long long deadlineNs)
{
    unsigned int word = 0U;
    const KoPlatform::ThreadWait wait(&wakeSleeper, &word);
    int error = 0;
    while (error == 0 && !KoPlatform::isTerminationRequested())
    {
        error = KoPlatform::futexWaitOnce(&word, 0U, false, deadlineNs); // 0 may be a stray wake-up
    }
    return error;
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
    const ClockSource source =
        clockId == CLOCK_ID_MONOTONIC ? sClockSource.load(std::memory_order_acquire) : nullptr;
    if (source != nullptr)
    {
        *oldTime = source();
        return 0;
    }
    timespec now = {};
    if (clock_gettime(clockId == CLOCK_ID_MONOTONIC ? CLOCK_MONOTONIC : toHostClock(clockId), &now) != 0)
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

ClockSource setClockSource(ClockSource source)
{
    return sClockSource.exchange(source, std::memory_order_acq_rel);
}

unsigned int delayUntil(unsigned long long deadlineNs)
{
    if (sleepUntil(deadlineNs) == ETIMEDOUT)
    {
        return 0U;
    }
    if (isTerminationRequested())
    {
        endCallingThread();
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
