// Asks for the time where the monotonic clock cannot be read.

#include <cerrno>
#include <cstdio>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

#include "pf/oswrapper/KoOperatingSystem.h"

static bool sBroken = false;

/// Fails while the clock is broken; the host's call otherwise.
extern "C" int clock_gettime(clockid_t id, timespec* time) noexcept
{
    if (sBroken && id == CLOCK_MONOTONIC)
    {
        errno = EINVAL;
        return -1;
    }
#ifdef SYS_clock_gettime64
    return static_cast<int>(syscall(SYS_clock_gettime64, id, time));
#else
    return static_cast<int>(syscall(SYS_clock_gettime, id, time));
#endif
}

int main()
{
    sBroken = true;
    unsigned long long stored = 1;
    errno = ENOTTY;
    const unsigned long long time = KoOperatingSystem::getMonotonicTime(&stored);
    const bool errnoKept = errno == ENOTTY;
    std::printf("time %llu, stored %llu, errno kept %d, deadline %llu, none %d, page time %llu\n", time,
                stored, static_cast<int>(errnoKept), KoOperatingSystem::calculateKernelTimeout(5),
                static_cast<int>(KoOperatingSystem::calculateKernelTimeout(-1) == ~0ULL),
                KoOperatingSystem::getSysPageTime());
    return 0;
}
