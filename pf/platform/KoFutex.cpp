#include "pf/platform/KoFutex.h"

#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoPlatformTimeout.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr unsigned long long NS_PER_SECOND = 1000000000ULL;

// Known to kernels since 5.14; older headers lack it.
constexpr int LOCK_WITH_MONOTONIC_DEADLINE = 13;

/// A time as every 64-bit time interface of the kernel takes it.
struct KernelTime
{
    long long seconds;
    long long nanoseconds;
};

KernelTime toKernelTime(unsigned long long ns)
{
    return KernelTime{static_cast<long long>(ns / NS_PER_SECOND), static_cast<long long>(ns % NS_PER_SECOND)};
}

/// What becomes of interruptions by signals. All deadlines are absolute and all values compared again, so
/// that an interrupted call can just be repeated.
enum Interruptions
{
    ABSORB_INTERRUPTIONS,
    REPORT_INTERRUPTIONS
};

/// One futex call; the error number, or 0 and the call's result. `errno` is left as it was.
template <class Time>
int callFutex(long number, unsigned int* word, int operation, unsigned int value, Time time,
              unsigned int* word2, unsigned int value3, Interruptions interruptions = ABSORB_INTERRUPTIONS,
              long* result = nullptr)
{
    const int savedErrno = errno;
    const auto call = [&] { return syscall(number, word, operation, value, time, word2, value3); };
    const long returned =
        interruptions == REPORT_INTERRUPTIONS ? call() : KoPlatform::repeatInterrupted(call);
    const int error = returned == -1 ? errno : 0;
    errno = savedErrno;
    if (result != nullptr)
    {
        *result = returned;
    }
    return error;
}

int operationFor(int operation, bool shared)
{
    return shared ? operation : operation | FUTEX_PRIVATE_FLAG;
}

#ifdef SYS_futex_time64
/// The same call on kernels before 5.1, which know only narrow times on 32-bit processors.
int callNarrow(unsigned int* word, int operation, unsigned int value, const KernelTime& time,
               Interruptions interruptions)
{
    struct
    {
        long seconds;
        long nanoseconds;
    } narrow = {static_cast<long>(std::min<long long>(time.seconds, LONG_MAX)),
                static_cast<long>(time.nanoseconds)};
    return callFutex(SYS_futex, word, operation, value, &narrow, nullptr, FUTEX_BITSET_MATCH_ANY,
                     interruptions);
}

int callTimed(unsigned int* word, int operation, unsigned int value, const KernelTime& time,
              Interruptions interruptions = ABSORB_INTERRUPTIONS)
{
    const int error = callFutex(SYS_futex_time64, word, operation, value, &time, nullptr,
                                FUTEX_BITSET_MATCH_ANY, interruptions);
    return error == ENOSYS ? callNarrow(word, operation, value, time, interruptions) : error;
}
#else
int callTimed(unsigned int* word, int operation, unsigned int value, const KernelTime& time,
              Interruptions interruptions = ABSORB_INTERRUPTIONS)
{
    return callFutex(SYS_futex, word, operation, value, &time, nullptr, FUTEX_BITSET_MATCH_ANY,
                     interruptions);
}
#endif

unsigned long long readClock(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<unsigned long long>(now.tv_sec) * NS_PER_SECOND +
           static_cast<unsigned long long>(now.tv_nsec);
}

/// Locks on kernels that time such locks by the wall clock only: in slices, so that a step of that clock
/// costs at most one.
int lockInSlices(unsigned int* word, bool shared, unsigned long long deadlineNs)
{
    for (;;)
    {
        const unsigned long long now = KoPlatform::monotonicNow();
        const unsigned long long left = deadlineNs > now ? deadlineNs - now : 0ULL;
        const KernelTime until = toKernelTime(readClock(CLOCK_REALTIME) + std::min(left, NS_PER_SECOND));
        const int error = callTimed(word, operationFor(FUTEX_LOCK_PI, shared), 0U, until);
        if (error != ETIMEDOUT || KoPlatform::monotonicNow() >= deadlineNs)
        {
            return error;
        }
    }
}

int waitWhileEqual(unsigned int* word, unsigned int value, bool shared, unsigned long long deadlineNs,
                   Interruptions interruptions)
{
    const int operation = operationFor(FUTEX_WAIT_BITSET, shared);
    if (deadlineNs == KoPlatform::NO_DEADLINE)
    {
        return callFutex(SYS_futex, word, operation, value, nullptr, nullptr, FUTEX_BITSET_MATCH_ANY,
                         interruptions);
    }
    return callTimed(word, operation, value, toKernelTime(deadlineNs), interruptions);
}

} // namespace

namespace KoPlatform
{

int futexCheckPriorityInheritance()
{
    // Giving back a free word is refused by every kernel that knows the operation, and does nothing.
    unsigned int word = 0U;
    const int error = futexUnlock(&word, false);
    return error == ENOSYS ? ENOTSUP : 0;
}

int futexLock(unsigned int* word, bool shared, unsigned long long deadlineNs)
{
    // Set once, never cleared, guards nothing else: relaxed.
    static bool sWallClockOnly = false;
    if (deadlineNs == NO_DEADLINE)
    {
        return callFutex(SYS_futex, word, operationFor(FUTEX_LOCK_PI, shared), 0U, nullptr, nullptr, 0U);
    }
    if (!__atomic_load_n(&sWallClockOnly, __ATOMIC_RELAXED))
    {
        const int operation = operationFor(LOCK_WITH_MONOTONIC_DEADLINE, shared);
        const int error = callTimed(word, operation, 0U, toKernelTime(deadlineNs));
        if (error != ENOSYS)
        {
            return error;
        }
        __atomic_store_n(&sWallClockOnly, true, __ATOMIC_RELAXED);
    }
    return lockInSlices(word, shared, deadlineNs);
}

int futexTryLock(unsigned int* word, bool shared)
{
    return callFutex(SYS_futex, word, operationFor(FUTEX_TRYLOCK_PI, shared), 0U, nullptr, nullptr, 0U);
}

int futexUnlock(unsigned int* word, bool shared)
{
    return callFutex(SYS_futex, word, operationFor(FUTEX_UNLOCK_PI, shared), 0U, nullptr, nullptr, 0U);
}

int futexWait(unsigned int* word, unsigned int value, bool shared, unsigned long long deadlineNs)
{
    return waitWhileEqual(word, value, shared, deadlineNs, ABSORB_INTERRUPTIONS);
}

int futexWaitOnce(unsigned int* word, unsigned int value, bool shared, unsigned long long deadlineNs)
{
    return waitWhileEqual(word, value, shared, deadlineNs, REPORT_INTERRUPTIONS);
}

int futexWake(unsigned int* word, int count, bool shared)
{
    return callFutex(SYS_futex, word, operationFor(FUTEX_WAKE, shared), static_cast<unsigned int>(count),
                     nullptr, nullptr, 0U);
}

int futexAdvance(unsigned int* word, int count, bool shared)
{
    // The call could wake a second group of sleepers if the old value were 1, which an even word never is.
    constexpr unsigned int ADD_TWO = FUTEX_OP(FUTEX_OP_ADD, 2, FUTEX_OP_CMP_EQ, 1);
    const int operation = operationFor(FUTEX_WAKE_OP, shared);
    return callFutex(SYS_futex, word, operation, static_cast<unsigned int>(count), 0L, word, ADD_TWO);
}

int futexCountSleepers(unsigned int* word, bool shared)
{
    // Moving all sleepers from the word to itself wakes none and tells how many there are.
    long count = 0;
    const int error = callFutex(SYS_futex, word, operationFor(FUTEX_REQUEUE, shared), 0U,
                                static_cast<long>(INT_MAX), word, 0U, ABSORB_INTERRUPTIONS, &count);
    return error == 0 ? static_cast<int>(count) : -1;
}

unsigned long long futexClockNow()
{
    return readClock(CLOCK_MONOTONIC);
}

bool threadExists(unsigned int kernelId, bool anywhere)
{
    const int savedErrno = errno;
    const int id = static_cast<int>(kernelId);
    const long result = anywhere ? syscall(SYS_tkill, id, 0) : syscall(SYS_tgkill, getpid(), id, 0);
    const bool exists = result == 0 || errno != ESRCH;
    errno = savedErrno;
    return exists;
}

} // namespace KoPlatform
