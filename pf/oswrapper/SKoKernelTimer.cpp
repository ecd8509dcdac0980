#include "pf/oswrapper/SKoKernelTimer.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformTimeout.h"

#include <cerrno>

static_assert(sizeof(SKoKernelTimer) == 8, "one 64-bit deadline");

SKoKernelTimer::SKoKernelTimer(int timeoutMs)
    : deadlineNs(KoOperatingSystem::calculateKernelTimeout(timeoutMs))
{
}

bool SKoKernelTimer::start()
{
    if (deadlineNs == 0ULL)
    {
        errno = ETIMEDOUT;
        return false;
    }
    return KoOperatingSystem::setKernelTimeout(deadlineNs,
                                               KoPlatform::TIMEOUT_SEND | KoPlatform::TIMEOUT_REPLY);
}

bool SKoKernelTimer::timeoutOccurred() const
{
    const KoErrnoGuard guard;
    return KoOperatingSystem::getClockValue(KoPlatform::CLOCK_ID_MONOTONIC) >= deadlineNs;
}
