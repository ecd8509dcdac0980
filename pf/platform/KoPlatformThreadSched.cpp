#include "pf/platform/KoFailure.h"
#include "pf/platform/KoLayerLock.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoThreadRecord.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

// Priorities 1, 10 and 63 are the host's nice values 19, 0 and -20; between them the scale is straight.
constexpr int LOWEST = 1;
constexpr int NORMAL = 10;
constexpr int HIGHEST_ORDINARY = 63;
constexpr int HIGHEST = 99;
constexpr int NICE_OF_LOWEST = 19;
constexpr int NICE_OF_HIGHEST = -20;

constexpr std::size_t NAME_MAX_BYTES = 99U;

/// `value` scaled from one range to another, to the nearest.
int scale(int value, int from, int to)
{
    return (2 * value * to + from) / (2 * from);
}

int toNice(int priority)
{
    const int ordinary = std::min(priority, HIGHEST_ORDINARY);
    return ordinary <= NORMAL ? scale(NORMAL - ordinary, NORMAL - LOWEST, NICE_OF_LOWEST)
                              : -scale(ordinary - NORMAL, HIGHEST_ORDINARY - NORMAL, -NICE_OF_HIGHEST);
}

int toPriority(int nice)
{
    return nice >= 0 ? NORMAL - scale(nice, NICE_OF_LOWEST, NORMAL - LOWEST)
                     : NORMAL + scale(-nice, -NICE_OF_HIGHEST, HIGHEST_ORDINARY - NORMAL);
}

bool isRealTime(pid_t kernelId)
{
    const int policy = ::sched_getscheduler(kernelId) & ~SCHED_RESET_ON_FORK;
    return policy == SCHED_FIFO || policy == SCHED_RR;
}

bool isOwnProcess(int pid)
{
    return pid == 0 || pid == getpid();
}

int numberOf(int tid)
{
    return tid != 0 ? tid : threadSelf();
}

/// Copies as much of a name as the host keeps, whole characters only.
void shorten(const char* name, char (&shortened)[ThreadFacts::NAME_SIZE])
{
    std::size_t length = std::min(std::strlen(name), sizeof(shortened) - 1U);
    while (length > 0U && (static_cast<unsigned char>(name[length]) & 0xC0U) == 0x80U)
    {
        --length;
    }
    std::memcpy(shortened, name, length);
    shortened[length] = '\0';
}

int writeName(const char* path, const char* name)
{
    const int descriptor = repeatInterrupted([&] { return ::open(path, O_WRONLY | O_CLOEXEC); });
    if (descriptor == -1)
    {
        return errno;
    }
    const ssize_t written = ::write(descriptor, name, std::strlen(name));
    const int error = written == -1 ? errno : 0;
    ::close(descriptor);
    return error;
}

} // namespace

namespace KoPlatform
{

bool isPriority(int priority) noexcept
{
    return priority >= LOWEST && priority <= HIGHEST;
}

void applyPriority(const ThreadRecord& record) noexcept
{
    const int savedErrno = errno;
    const pid_t kernelId = static_cast<pid_t>(record.kernelId);
    if (isRealTime(kernelId))
    {
        sched_param param = {};
        param.sched_priority = record.priority;
        ::sched_setparam(kernelId, &param);
    }
    else
    {
        ::setpriority(PRIO_PROCESS, record.kernelId, toNice(record.priority));
    }
    errno = savedErrno;
}

int applyName(const ThreadRecord& record) noexcept
{
    const int savedErrno = errno;
    char path[48];
    std::snprintf(path, sizeof(path), "/proc/self/task/%u/comm", record.kernelId);
    const int error = writeName(path, record.name);
    errno = savedErrno;
    return error;
}

/// Relaxed, as its load in callersPriority: a priority guards no data.
void recordPriority(ThreadRecord& record, int priority) noexcept
{
    __atomic_store_n(&record.priority, priority, __ATOMIC_RELAXED);
}

int priorityOf(ThreadRecord& record) noexcept
{
    if (record.priority == 0)
    {
        const int savedErrno = errno;
        const pid_t kernelId = static_cast<pid_t>(record.kernelId);
        sched_param param = {};
        const bool realTime = isRealTime(kernelId) && ::sched_getparam(kernelId, &param) == 0;
        recordPriority(record, realTime ? param.sched_priority
                                        : toPriority(::getpriority(PRIO_PROCESS, record.kernelId)));
        errno = savedErrno;
    }
    return record.priority;
}

int SchedGet(int pid, int tid, SSchedParam* param)
{
    if (!isOwnProcess(pid) || param == nullptr)
    {
        return failWith(EINVAL);
    }
    const int id = numberOf(tid);
    const LayerLock lock(sThreadTableLock);
    ThreadRecord* const record = findThreadRecord(id);
    if (record == nullptr)
    {
        return failWith(ESRCH);
    }
    param->sched_priority = priorityOf(*record);
    // A thread that has not begun inherits the caller's policy.
    return ::sched_getscheduler(static_cast<pid_t>(record->kernelId));
}

int SchedSet(int pid, int tid, int policy, const SSchedParam* param)
{
    if (!isOwnProcess(pid) || policy != SCHED_POLICY_UNCHANGED || param == nullptr ||
        !isPriority(param->sched_priority))
    {
        return failWith(EINVAL);
    }
    const int id = numberOf(tid);
    const LayerLock lock(sThreadTableLock);
    ThreadRecord* const record = findThreadRecord(id);
    if (record == nullptr)
    {
        return failWith(ESRCH);
    }
    recordPriority(*record, param->sched_priority);
    record->prioritySet = true;
    if (record->kernelId != 0U)
    {
        applyPriority(*record);
    }
    return 0;
}

int sched_getparam(int pid, SSchedParam* param)
{
    return SchedGet(pid, 0, param) != -1 ? 0 : -1;
}

int pthread_setname_np(int tid, const char* name)
{
    if (name == nullptr)
    {
        return EINVAL;
    }
    if (std::strlen(name) > NAME_MAX_BYTES)
    {
        return E2BIG;
    }
    const int id = numberOf(tid);
    const LayerLock lock(sThreadTableLock);
    ThreadRecord* const record = findThreadRecord(id);
    if (record == nullptr || record->state == ThreadState::ENDED)
    {
        return ESRCH;
    }
    shorten(name, record->name);
    return record->kernelId != 0U ? applyName(*record) : 0;
}

} // namespace KoPlatform
