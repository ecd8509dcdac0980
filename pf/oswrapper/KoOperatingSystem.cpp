#include "pf/oswrapper/KoOperatingSystem.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoLoadOrder.h"
#include "pf/oswrapper/TKoStartupCaller.h"
#include "pf/platform/KoPlatformClock.h"

#include <cerrno>
#include <cstdio>

namespace
{

constexpr const char* SOURCE = "KoOperatingSystem";
constexpr unsigned long long NS_PER_MS = 1000000ULL;

/// The monotonic bias; 0 until it is set. A caller that reads another value sees the whole of it, and it
/// stands alone: relaxed.
unsigned long long sMonotonicBias = 0ULL;

/// The first of several callers sets the bias for all.
void initialiseMonotonicBias()
{
    unsigned long long unset = 0ULL;
    if (__atomic_load_n(&sMonotonicBias, __ATOMIC_RELAXED) == unset)
    {
        const unsigned long long now = KoOperatingSystem::getMonotonicTime(nullptr);
        __atomic_compare_exchange_n(&sMonotonicBias, &unset, now, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED);
    }
}

const TKoStartupCaller<initialiseMonotonicBias> sBiasAtLoad KO_INIT_ORDER(KoLoadOrder::MONOTONIC_BIAS);

void storeIfWanted(unsigned long long* out, unsigned long long value)
{
    if (out != nullptr)
    {
        *out = value;
    }
}

} // namespace

namespace KoOperatingSystem
{

int getLastError()
{
    return errno;
}

void setLastError(int error)
{
    errno = error;
}

void waitAttachDebugger()
{
}

void sleepMs(unsigned int ms)
{
    if (ms == 0U)
    {
        return;
    }
    const unsigned long long deadlineNs = KoPlatform::monotonicNow() + ms * NS_PER_MS;
    unsigned int remaining = KoPlatform::delay(ms);
    while (remaining != 0U)
    {
        remaining = KoPlatform::delayUntil(deadlineNs);
    }
}

unsigned int getRealTimeMs()
{
    unsigned long long now = 0ULL;
    KoPlatform::ClockTime(KoPlatform::CLOCK_ID_REALTIME, nullptr, &now);
    return static_cast<unsigned int>(now / NS_PER_MS);
}

unsigned long long getSysPageTime()
{
    return KoPlatform::monotonicNow();
}

unsigned long long getClockValue(int clockId)
{
    unsigned long long value = 0ULL;
    if (KoPlatform::ClockTime(clockId, nullptr, &value) != 0)
    {
        return 0ULL;
    }
    return value != 0ULL ? value : 1ULL;
}

unsigned long long getMonotonicTime(unsigned long long* out)
{
    const KoErrnoGuard guard;
    const unsigned long long now = getClockValue(KoPlatform::CLOCK_ID_MONOTONIC);
    if (now == 0ULL)
    {
        doCheapAssert(__LINE__, SOURCE);
    }
    storeIfWanted(out, now);
    return now;
}

unsigned long long getMonotonicBias(unsigned long long* out)
{
    initialiseMonotonicBias();
    const unsigned long long bias = __atomic_load_n(&sMonotonicBias, __ATOMIC_RELAXED);
    storeIfWanted(out, bias);
    return bias;
}

unsigned long long timeDiffMonotonic(unsigned long long earlier)
{
    const unsigned long long now = getMonotonicTime(nullptr);
    if (earlier > now)
    {
        doCheapAssert(__LINE__, SOURCE);
        return 0ULL;
    }
    return now - earlier;
}

unsigned long long calculateKernelTimeout(int ms)
{
    if (ms < 0)
    {
        return ~0ULL;
    }
    const unsigned long long now = getClockValue(KoPlatform::CLOCK_ID_MONOTONIC);
    return now == 0ULL ? 0ULL : now + static_cast<unsigned long long>(ms) * NS_PER_MS;
}

int vsnprintf(char* buffer, int size, const char* format, va_list args)
{
    if (buffer == nullptr && size != 0)
    {
        doCheapAssert(__LINE__, SOURCE);
        return 0;
    }
    if (size <= 0)
    {
        return 0;
    }
    const int length = ::vsnprintf(buffer, static_cast<std::size_t>(size), format, args);
    if (length < 0)
    {
        buffer[0] = '\0';
        return 0;
    }
    return length < size ? length : size - 1;
}

} // namespace KoOperatingSystem
