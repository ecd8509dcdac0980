#include "pf/platform/KoPlatformSync.h"

#include <atomic>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SignalStorm.h"

namespace
{

using namespace KoPlatform;
using KoTest::ChildProcess;
using KoTest::deadlineIn;
using KoTest::FailingCall;
using KoTest::Holder;
using KoTest::inOtherThread;
using KoTest::makeMutex;
using KoTest::PLAIN;
using KoTest::RECURSIVE;
using KoTest::SHARED;
using KoTest::Stopwatch;

constexpr unsigned int WAITERS_BIT = 0x80000000U;

bool hasWaiter(const _sync& mutex)
{
    return KoTest::waitUntil(
        [&] { return (__atomic_load_n(&mutex.owner, __ATOMIC_RELAXED) & WAITERS_BIT) != 0U; });
}

TEST(PlatformMutex, ExcludesContendingThreadsUnderSignals)
{
    for (const int kind : {static_cast<int>(PLAIN), static_cast<int>(SHARED), RECURSIVE | SHARED})
    {
        const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS);
        _sync mutex = makeMutex(kind);
        KoTest::addInTurns(
            20000,
            [&](int index)
            {
                const int error = index % 2 == 0
                                      ? pthread_mutex_lock(&mutex)
                                      : pthread_mutex_timedlock_monotonic(&mutex, deadlineIn(60000));
                ASSERT_EQ(error, 0);
            },
            [&] { ASSERT_EQ(pthread_mutex_unlock(&mutex), 0); });
        EXPECT_EQ(mutex.owner, 0U);
    }
}

TEST(PlatformMutex, AnswersMisuseWithErrorNumbersAndLeavesErrnoAlone)
{
    errno = ENOTTY;
    _sync mutex = makeMutex();
    EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM) << "free";
    ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
    EXPECT_EQ(pthread_mutex_lock(&mutex), EDEADLK);
    EXPECT_EQ(pthread_mutex_timedlock_monotonic(&mutex, deadlineIn(60000)), EDEADLK);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
    EXPECT_EQ(pthread_mutex_destroy(&mutex), EBUSY) << "own";
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(inOtherThread([&] { return pthread_mutex_trylock(&mutex); }), EBUSY);
    EXPECT_EQ(inOtherThread([&] { return pthread_mutex_unlock(&mutex); }), EPERM);
    EXPECT_EQ(inOtherThread([&] { return pthread_mutex_timedlock_monotonic(&mutex, 1ULL); }), ETIMEDOUT);
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM) << "given back already";
    EXPECT_EQ(pthread_mutex_timedlock_monotonic(&mutex, 1ULL), 0) << "free, the deadline does not matter";
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
    SyncAttributes unset{};
    EXPECT_EQ(pthread_mutex_init(&mutex, &unset), EINVAL);
}

TEST(PlatformMutex, TimesOutAtTheDeadlineUnderSignals)
{
    _sync mutex = makeMutex();
    const Holder holder(mutex);
    for (const bool armed : {false, true})
    {
        const KoTest::SignalStorm storm;
        const Stopwatch watch;
        const unsigned long long deadline = deadlineIn(60);
        if (armed)
        {
            TimerTimeout(CLOCK_ID_MONOTONIC, static_cast<int>(TIMEOUT_MUTEX | TIMEOUT_ABSOLUTE), nullptr,
                         &deadline, nullptr);
            EXPECT_EQ(pthread_mutex_lock(&mutex), ETIMEDOUT);
        }
        else
        {
            EXPECT_EQ(pthread_mutex_timedlock_monotonic(&mutex, deadline), ETIMEDOUT);
        }
        EXPECT_GE(monotonicNow(), deadline);
        EXPECT_TRUE(watch.isWithin(60, 1000));
        EXPECT_TRUE(storm.count() >= 5U || !KoTest::FaultInjection::isAvailable());
    }
}

TEST(PlatformMutex, TimesByTheWallClockOnKernelsWithoutMonotonicLocks)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const auto body = []
    {
        _sync mutex = makeMutex();
        Holder holder(mutex);
        // A 32-bit process asks in both widths before it gives up.
        const FailingCall unknown(KoTest::FAULT_FUTEX, ENOSYS, sizeof(long) == 4 ? 2 : 1);
        for (const unsigned int ms : {1100U, 0U})
        {
            const Stopwatch watch;
            const unsigned long long deadline = deadlineIn(ms);
            EXPECT_EQ(pthread_mutex_timedlock_monotonic(&mutex, deadline), ETIMEDOUT);
            EXPECT_GE(monotonicNow(), deadline);
            EXPECT_TRUE(watch.isWithin(ms, ms + 1000));
        }
        EXPECT_EQ(unknown.failed(), sizeof(long) == 4 ? 2U : 1U);
        std::thread releaser([&] { hasWaiter(mutex) ? holder.release() : holder.die(); });
        EXPECT_EQ(pthread_mutex_timedlock_monotonic(&mutex, deadlineIn(60000)), 0);
        releaser.join();
        return 0;
    };
    const KoTest::ChildResult result = ChildProcess::run(body);
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

TEST(PlatformMutex, KeepsWaitingThroughRefusalsOfTheKernelThatPass)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    for (const int error : {EINTR, EAGAIN, ENOMEM, EINVAL, EDEADLK})
    {
        _sync mutex = makeMutex();
        Holder holder(mutex);
        std::thread releaser([&] { hasWaiter(mutex) ? holder.release() : holder.die(); });
        const FailingCall refused(KoTest::FAULT_FUTEX, error, 5);
        EXPECT_EQ(pthread_mutex_lock(&mutex), 0) << error;
        EXPECT_EQ(refused.failed(), 5U) << error;
        releaser.join();
        EXPECT_FALSE(takeOwnerDied(&mutex));
        EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
    }
}

TEST(PlatformMutex, IsTakenOverFromAThreadThatEndedWithIt)
{
    for (const bool tryOnce : {false, true})
    {
        _sync mutex = makeMutex(RECURSIVE);
        std::thread(
            [&]
            {
                pthread_mutex_lock(&mutex);
                pthread_mutex_lock(&mutex);
            })
            .join();
        // The kernel may still be taking the thread apart.
        EXPECT_TRUE(KoTest::waitUntil(
            [&] { return (tryOnce ? pthread_mutex_trylock(&mutex) : pthread_mutex_lock(&mutex)) == 0; }));
        EXPECT_TRUE(takeOwnerDied(&mutex));
        EXPECT_FALSE(takeOwnerDied(&mutex)) << "told once";
        EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
        EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM) << "the dead owner's locks do not count";
        std::thread([&] { pthread_mutex_lock(&mutex); }).join();
        EXPECT_TRUE(KoTest::waitUntil([&] { return pthread_mutex_destroy(&mutex) == 0; }));
    }
}

TEST(PlatformMutex, HasOneOwnerAtATimeWhileThreadsEndWithItUnderWaiters)
{
    _sync mutex = makeMutex();
    std::atomic<int> inside{0};
    std::atomic<int> takenOver{0};
    const auto visit = [&](int number)
    {
        const int error = number % 3 == 0 ? pthread_mutex_trylock(&mutex) : pthread_mutex_lock(&mutex);
        if (error != 0)
        {
            return;
        }
        takenOver += takeOwnerDied(&mutex) ? 1 : 0;
        EXPECT_EQ(++inside, 1);
        std::this_thread::yield();
        --inside;
        if (number % 2 == 0)
        {
            EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
        }
    };
    for (int round = 0; round < 60; ++round)
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
        {
            threads.emplace_back(visit, round + i);
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
    }
    EXPECT_GE(takenOver, 60);
}

struct SharedLock
{
    _sync mutex = makeMutex(SHARED);
    long first = 0;
    long second = 0;
    long recovered = 0;
};

TEST(PlatformMutex, IsTakenOverFromAKilledProcessThatNobodyHasReaped)
{
    const KoTest::SharedMemory<SharedLock> shared;
    const pid_t child = fork();
    if (child == 0)
    {
        pthread_mutex_lock(&shared->mutex);
        kill(getpid(), SIGKILL);
    }
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(pthread_mutex_timedlock_monotonic(&shared->mutex, deadlineIn(10000)), 0);
    EXPECT_TRUE(takeOwnerDied(&shared->mutex));
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

/// Adds to two counters under the shared lock, which are equal whenever nobody is at work, until it is
/// killed.
[[noreturn]] void workUntilKilled(SharedLock& shared)
{
    for (;;)
    {
        if (pthread_mutex_lock(&shared.mutex) != 0)
        {
            _exit(1);
        }
        if (takeOwnerDied(&shared.mutex))
        {
            ++shared.recovered;
            shared.second = shared.first;
        }
        if (shared.first != shared.second)
        {
            _exit(2);
        }
        ++shared.first;
        ++shared.second;
        if (pthread_mutex_unlock(&shared.mutex) != 0)
        {
            _exit(3);
        }
    }
}

TEST(PlatformMutex, SurvivesProcessesThatAreKilledAtAnyPoint)
{
    constexpr int WORKERS = 3;
    constexpr int KILLS = 300;
    const KoTest::SharedMemory<SharedLock> shared;
    const auto start = [&]
    {
        const pid_t worker = fork();
        if (worker == 0)
        {
            workUntilKilled(*shared.operator->());
        }
        return worker;
    };
    pid_t workers[WORKERS];
    for (pid_t& worker : workers)
    {
        worker = start();
    }
    for (int i = 0; i < KILLS; ++i)
    {
        pid_t& worker = workers[i % WORKERS];
        const long before = __atomic_load_n(&shared->first, __ATOMIC_RELAXED);
        ASSERT_TRUE(KoTest::waitUntil(
            [&] { return __atomic_load_n(&shared->first, __ATOMIC_RELAXED) >= before + i % 7; }))
            << "stuck after " << i << " kills, owner word " << std::hex << shared->mutex.owner;
        int status = 0;
        kill(worker, SIGKILL);
        waitpid(worker, &status, 0);
        ASSERT_EQ(status, SIGKILL);
        worker = start();
    }
    for (const pid_t worker : workers)
    {
        kill(worker, SIGKILL);
        waitpid(worker, nullptr, 0);
    }
    RecordProperty("recovered", static_cast<int>(shared->recovered));
    EXPECT_EQ(pthread_mutex_timedlock_monotonic(&shared->mutex, deadlineIn(10000)), 0);
}

TEST(PlatformMutex, ReportsThreadsThatWaitForEachOtherAndKeepsWaiting)
{
    const KoTest::LogCapture log;
    _sync first = makeMutex();
    _sync second = makeMutex();
    ASSERT_EQ(pthread_mutex_lock(&first), 0);
    std::thread other(
        [&]
        {
            EXPECT_EQ(pthread_mutex_lock(&second), 0);
            EXPECT_EQ(pthread_mutex_lock(&first), 0);
            EXPECT_EQ(pthread_mutex_unlock(&first), 0);
            EXPECT_EQ(pthread_mutex_unlock(&second), 0);
        });
    ASSERT_TRUE(hasWaiter(first));
    const Stopwatch watch;
    EXPECT_EQ(pthread_mutex_timedlock_monotonic(&second, deadlineIn(50)), ETIMEDOUT);
    EXPECT_TRUE(watch.isWithin(50, 1000));
    EXPECT_EQ(pthread_mutex_unlock(&first), 0);
    EXPECT_EQ(pthread_mutex_lock(&second), 0);
    other.join();
    ASSERT_EQ(log.size(), 1U);
    const std::string expected =
        "deadlock: thread " + std::to_string(kernelThreadSelf()) + " waits for a lock of thread ";
    EXPECT_EQ(log.lines()[0].text.compare(0, expected.size(), expected), 0) << log.lines()[0].text;
}

/// The kernel's view of the calling thread's priority: negative for a real-time one.
int currentPriority()
{
    constexpr int PRIORITY_FIELD = 18;
    std::ifstream stat("/proc/self/task/" + std::to_string(kernelThreadSelf()) + "/stat");
    std::string field;
    for (int i = 0; i < PRIORITY_FIELD; ++i)
    {
        stat >> field;
    }
    return std::stoi(field);
}

TEST(PlatformMutex, LendsAWaitersPriorityToTheOwner)
{
    _sync mutex = makeMutex();
    ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
    std::atomic<int> refused{-1};
    std::thread urgent(
        [&]
        {
            sched_param parameters{};
            parameters.sched_priority = 10;
            refused = ::pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
            EXPECT_EQ(pthread_mutex_lock(&mutex), 0);
            EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
        });
    ASSERT_TRUE(hasWaiter(mutex));
    const int lent = currentPriority();
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
    urgent.join();
    if (refused != 0 || KoTest::isEmulated())
    {
        GTEST_SKIP() << "no real-time priorities here";
    }
    EXPECT_EQ(lent, -11);
    EXPECT_GE(currentPriority(), 0);
}

TEST(PlatformMutex, IsAbandonedInAForkedChildWhenItsOwnerStayedBehind)
{
    _sync own = makeMutex();
    _sync others = makeMutex();
    _sync shared = makeMutex(SHARED);
    const Holder holder(others);
    ASSERT_EQ(pthread_mutex_lock(&own), 0);
    ASSERT_EQ(pthread_mutex_lock(&shared), 0);
    const auto body = [&]
    {
        EXPECT_EQ(pthread_mutex_unlock(&own), EPERM) << "the child is another owner";
        EXPECT_EQ(pthread_mutex_lock(&own), 0);
        EXPECT_EQ(own.owner, static_cast<unsigned int>(gettid()));
        EXPECT_EQ(pthread_mutex_trylock(&others), 0);
        EXPECT_TRUE(takeOwnerDied(&own) && takeOwnerDied(&others));
        EXPECT_EQ(pthread_mutex_timedlock_monotonic(&shared, deadlineIn(1)), ETIMEDOUT) << "its owner lives";
        return 0;
    };
    const KoTest::ChildResult result = ChildProcess::run(body);
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_EQ(pthread_mutex_unlock(&own), 0) << "nothing has changed here";
    EXPECT_EQ(pthread_mutex_unlock(&shared), 0);
}

} // namespace
