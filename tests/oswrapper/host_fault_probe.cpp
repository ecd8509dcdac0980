// Uses clocks and locks on a host that refuses what they need, and tells what came of it.

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoMutexAccess.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "tests/platform/LockTestSupport.h"

namespace
{

std::atomic<int> sTime{1};
CKoCriticalSection sSection;

} // namespace

/// Refuses to wait, as a kernel does that cannot; the log's connection passes.
extern "C" long syscall(long number, ...) noexcept
{
    va_list arguments;
    va_start(arguments, number);
    const int descriptor = va_arg(arguments, int);
    const auto* const address = va_arg(arguments, const sockaddr*);
    va_end(arguments);
    errno = ENOSYS;
    return number == SYS_connect ? connect(descriptor, address, sizeof(sockaddr_un)) : -1;
}

/// Counts its calls as long as the clock works.
extern "C" int clock_gettime(clockid_t /*id*/, timespec* time) noexcept
{
    *time = {sTime == 0 ? 0 : ++sTime, 0};
    errno = EINVAL;
    return sTime == 0 ? -1 : 0;
}

int main()
{
    KoTest::addInTurns(
        100, [](int) { sSection.lock(); }, [] { sSection.unlock(); });
    _sync mutex{};
    KoMutexAccess::create(mutex, false, true, false);
    const bool usable = KoPlatform::pthread_mutex_unlock(&mutex) == 0 && KoMutexAccess::lock(mutex, 10);
    sTime = 0;
    unsigned long long stored = 1;
    errno = ENOTTY;
    const unsigned long long time = KoOperatingSystem::getMonotonicTime(&stored);
    const int errnoKept = errno == ENOTTY ? 1 : 0;
    std::printf("usable %d, errno kept %d, time %llu, stored %llu, deadline %llu\n", usable ? 1 : 0,
                errnoKept, time, stored, KoOperatingSystem::calculateKernelTimeout(5));
    return 0;
}
