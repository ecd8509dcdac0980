#include "pf/oswrapper/CKoThreadCtrl.h"

#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoPlatformTimeout.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>

namespace
{

constexpr int OWN_PROCESS = 0;
constexpr int JOIN_FAILED = -1;
constexpr int JOIN_TIMED_OUT = -2;

void* runThread(void* runnable)
{
    static_cast<CKoThreadCtrl::IRunnable*>(runnable)->run();
    return nullptr;
}

/// Joins once, until the deadline (0 for no limit). \return 0 or an error number.
int joinUntil(int tid, unsigned long long deadline, void*& value)
{
    if (deadline != 0ULL && !KoOperatingSystem::setKernelTimeout(deadline, KoPlatform::TIMEOUT_JOIN))
    {
        return errno;
    }
    return KoPlatform::ThreadJoin_r(tid, &value);
}

} // namespace

int CKoThreadCtrl::startThread(IRunnable& runnable, bool detached, int priority, int stackSize)
{
    KoPlatform::SThreadAttributes attributes = {};
    if (KoPlatform::sched_getparam(OWN_PROCESS, &attributes.param) == -1)
    {
        return 0;
    }
    attributes.flags = detached ? KoPlatform::THREAD_DETACHED : 0U;
    attributes.stackSize = stackSize;
    if (priority != INHERITPRIORITY)
    {
        // Set by the new thread itself: once it runs it may have ended, and its number be another's.
        attributes.flags |= KoPlatform::THREAD_EXPLICIT_SCHED;
        attributes.param.sched_priority = priority;
    }
    const int tid = KoPlatform::repeatInterrupted(
        [&] { return KoPlatform::ThreadCreate(OWN_PROCESS, &runThread, &runnable, &attributes); });
    return tid != -1 ? tid : 0;
}

int CKoThreadCtrl::join(int tid, int timeoutMs)
{
    const unsigned long long deadline =
        timeoutMs >= 1 ? KoOperatingSystem::calculateKernelTimeout(timeoutMs) : 0ULL;
    void* value = nullptr;
    int error = joinUntil(tid, deadline, value);
    while (error == EINTR)
    {
        error = joinUntil(tid, deadline, value);
    }
    if (error != 0)
    {
        return error == ETIMEDOUT ? JOIN_TIMED_OUT : JOIN_FAILED;
    }
    return static_cast<int>(reinterpret_cast<std::intptr_t>(value));
}

int CKoThreadCtrl::terminate(int tid)
{
    return KoPlatform::ThreadDestroy(tid, -1, nullptr);
}

void CKoThreadCtrl::terminate()
{
    KoPlatform::ThreadDestroy(0, -1, nullptr);
    std::abort();
}

int CKoThreadCtrl::getPriority(int tid)
{
    KoPlatform::SSchedParam param = {};
    return KoPlatform::SchedGet(OWN_PROCESS, tid, &param) != -1 ? param.sched_priority : -1;
}

int CKoThreadCtrl::setPriority(int tid, int priority)
{
    KoPlatform::SSchedParam param = {};
    if (KoPlatform::SchedGet(OWN_PROCESS, tid, &param) == -1)
    {
        return -1;
    }
    const int previous = param.sched_priority;
    param.sched_priority = priority;
    KoPlatform::SchedSet(OWN_PROCESS, tid, KoPlatform::SCHED_POLICY_UNCHANGED, &param);
    return previous;
}

bool CKoThreadCtrl::setThreadName(int tid, const char* name)
{
    return KoPlatform::pthread_setname_np(tid, name) == 0;
}

int CKoThreadCtrl::getCurrentThreadId()
{
    return KoPlatform::threadSelf();
}
