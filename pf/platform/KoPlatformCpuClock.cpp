#include "pf/platform/KoPlatformCpuClock.h"

#include "pf/platform/KoCpuClockId.h"
#include "pf/platform/KoFailure.h"
#include "pf/platform/KoLayerLock.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoThreadRecord.h"
#include "pf/platform/KoThreadWait.h"

#include <cerrno>
#include <unistd.h>

namespace
{

/// The host's ids carry the inverted number of a thread or process above these three bits.
constexpr unsigned int NUMBER_SHIFT = 3U;
constexpr unsigned int THREAD_TIME = 6U;

constexpr int LARGEST_NUMBER = static_cast<int>((KoPlatform::CPU_CLOCK >> NUMBER_SHIFT) - 1U);

constexpr unsigned long long BEGIN_PAUSE_NS = 50000ULL;

/// Looks a thread's kernel id up; 0 when there is no thread that runs. \return false for one that was
/// created and is about to begin.
bool findKernelId(int tid, unsigned int& kernelId)
{
    const KoPlatform::LayerLock lock(KoPlatform::sThreadTableLock);
    const KoPlatform::ThreadRecord* const record = KoPlatform::findThreadRecord(tid);
    kernelId = record != nullptr ? record->kernelId : 0U;
    return kernelId != 0U || record == nullptr || record->state != KoPlatform::ThreadState::RUNNING;
}

/// The kernel's id of a thread; 0 when there is none that runs. A new thread has none before it begins, which
/// does not take long.
unsigned int kernelIdOf(int tid)
{
    if (tid == 0)
    {
        return KoPlatform::kernelThreadSelf();
    }
    unsigned int kernelId = 0U;
    while (!findKernelId(tid, kernelId))
    {
        KoPlatform::pauseFor(BEGIN_PAUSE_NS);
    }
    return kernelId;
}

} // namespace

namespace KoPlatform
{

int ClockId(int pid, int tid)
{
    if (pid != 0 && pid != ::getpid())
    {
        return failWith(EINVAL);
    }
    const unsigned int kernelId = kernelIdOf(tid);
    if (kernelId == 0U)
    {
        return failWith(ESRCH);
    }
    return fromHostCpuClock(static_cast<clockid_t>((~kernelId << NUMBER_SHIFT) | THREAD_TIME));
}

int clock_getcpuclockid(int pid, int* clockId)
{
    if (pid < 0 || pid > LARGEST_NUMBER)
    {
        return ESRCH;
    }
    clockid_t host{};
    const int error = ::clock_getcpuclockid(pid != 0 ? pid : ::getpid(), &host);
    if (error == 0)
    {
        *clockId = fromHostCpuClock(host);
    }
    return error;
}

} // namespace KoPlatform
