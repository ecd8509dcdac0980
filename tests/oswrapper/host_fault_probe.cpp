// Uses clocks and locks on a host that refuses what they need, and tells what came of it.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <thread>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoMutexAccess.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "tests/platform/LockTestSupport.h"

namespace
{

bool sClockBroken = false;
CKoCriticalSection sSection;

/// The calls that wait, under either number.
bool isFutex(long number)
{
#ifdef SYS_futex_time64
    return number == SYS_futex || number == SYS_futex_time64;
#else
    return number == SYS_futex;
#endif
}

} // namespace

/// Refuses to wait, as a kernel does that cannot, and passes other calls on.
extern "C" long syscall(long number, ...) noexcept
{
    if (isFutex(number))
    {
        errno = ENOSYS;
        return -1;
    }
    va_list arguments;
    va_start(arguments, number);
    const long first = va_arg(arguments, long);
    const long second = va_arg(arguments, long);
    const long third = va_arg(arguments, long);
    va_end(arguments);
    long (*real)(long, ...) = nullptr;
    void* const address = dlsym(RTLD_NEXT, "syscall");
    __builtin_memcpy(&real, &address, sizeof(real));
    return real(number, first, second, third);
}

extern "C" int clock_gettime(clockid_t id, timespec* time) noexcept
{
    if (sClockBroken && id == CLOCK_MONOTONIC)
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
    KoTest::addInTurns(
        100, [](int) { sSection.lock(); }, [] { sSection.unlock(); });
    _sync mutex{};
    KoMutexAccess::create(mutex, false, true, false);
    const bool usable = KoPlatform::pthread_mutex_unlock(&mutex) == 0 && KoMutexAccess::lock(mutex, 10);
    sClockBroken = true;
    unsigned long long stored = 1;
    errno = ENOTTY;
    const unsigned long long time = KoOperatingSystem::getMonotonicTime(&stored);
    const bool errnoKept = errno == ENOTTY;
    std::printf("usable %d, errno kept %d, time %llu, stored %llu, deadline %llu\n", static_cast<int>(usable),
                static_cast<int>(errnoKept), time, stored, KoOperatingSystem::calculateKernelTimeout(5));
    return 0;
}
