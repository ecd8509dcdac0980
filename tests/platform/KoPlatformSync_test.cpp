#include "pf/platform/KoPlatformSync.h"

#include <atomic>
#include <csignal>
#include <string>

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
using namespace KoTest;

TEST(PlatformMutex, TimesOutAtTheDeadlineUnderSignalsAlsoByTheWallClock)
{
    const auto body = []
    {
        _sync mutex = makeMutex();
        const Holder holder(mutex);
        const SignalStorm storm;
        // A kernel that does not know locks by the monotonic clock; a 32-bit process asks in both widths.
        const FailingCall unknown(FAULT_FUTEX, ENOSYS, sizeof(long) == 4 ? 2 : 1, 1);
        for (const unsigned int ms : {60U, 1100U, 0U})
        {
            const Stopwatch watch;
            const unsigned long long deadline = deadlineIn(ms);
            TimerTimeout(CLOCK_ID_MONOTONIC, static_cast<int>(TIMEOUT_MUTEX | TIMEOUT_ABSOLUTE), nullptr,
                         &deadline, nullptr);
            EXPECT_EQ(pthread_mutex_lock(&mutex), ETIMEDOUT);
            EXPECT_EQ(pthread_mutex_timedlock_monotonic(&mutex, deadline), ETIMEDOUT);
            EXPECT_TRUE(watch.isWithin(ms, ms + 1000));
        }
        return storm.count() >= 10U || !FaultInjection::isAvailable() ? 0 : 1;
    };
    // Sanitizers allow no threads in a forked child.
    const int status = FaultInjection::isAvailable() ? ChildProcess::run(body).exitStatus : body();
    EXPECT_EQ(status, 0);
}

TEST(PlatformMutex, KeepsWaitingThroughRefusalsOfTheKernelThatPass)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    for (const int error : {EINTR, EAGAIN, ENOMEM, EINVAL, EDEADLK})
    {
        _sync mutex = makeMutex();
        Holder holder(mutex);
        std::thread releaser([&] { hasWaiter(mutex) ? holder.release() : void(); });
        const FailingCall refused(FAULT_FUTEX, error, 5);
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
        inThreads(1, [&](int) { EXPECT_EQ(pthread_mutex_lock(&mutex) | pthread_mutex_lock(&mutex), 0); });
        // The kernel may still be taking the thread apart.
        EXPECT_TRUE(waitUntil(
            [&] { return (tryOnce ? pthread_mutex_trylock(&mutex) : pthread_mutex_lock(&mutex)) == 0; }));
        EXPECT_TRUE(takeOwnerDied(&mutex));
        EXPECT_FALSE(takeOwnerDied(&mutex)) << "told once";
        EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
        EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM) << "the dead owner's locks do not count";
    }
}

TEST(PlatformMutex, HasOneOwnerAtATimeWhileThreadsEndWithItUnderWaiters)
{
    _sync mutex = makeMutex();
    std::atomic<int> inside{0};
    std::atomic<int> takenOver{0};
    const auto visit = [&](int number)
    {
        if ((number % 3 == 0 ? pthread_mutex_trylock(&mutex) : pthread_mutex_lock(&mutex)) == 0)
        {
            takenOver += takeOwnerDied(&mutex) ? 1 : 0;
            EXPECT_EQ(++inside, 1);
            std::this_thread::yield();
            --inside;
            EXPECT_EQ(number % 2 == 0 ? pthread_mutex_unlock(&mutex) : 0, 0);
        }
    };
    for (int round = 0; round < 60; ++round)
    {
        inThreads(8, [&](int index) { visit(round + index); });
    }
    EXPECT_GE(takenOver, 60);
}

/// Two counters under a lock, which are equal whenever nobody is at work.
struct SharedLock
{
    _sync mutex = makeMutex(SHARED);
    long first = 0;
    long second = 0;
};

[[noreturn]] void workUntilKilled(SharedLock& shared)
{
    for (;;)
    {
        const bool locked = pthread_mutex_lock(&shared.mutex) == 0;
        if (takeOwnerDied(&shared.mutex))
        {
            shared.second = shared.first;
        }
        if (!locked || shared.first != shared.second)
        {
            _exit(1);
        }
        ++shared.first;
        ++shared.second;
        pthread_mutex_unlock(&shared.mutex);
    }
}

TEST(PlatformMutex, SurvivesProcessesThatAreKilledAtAnyPointAndNotReapedYet)
{
    auto& shared = makeShared<SharedLock>();
    pid_t workers[3] = {};
    for (int i = 0; i < 300; ++i)
    {
        const pid_t killed = workers[i % 3];
        const long before = __atomic_load_n(&shared.first, __ATOMIC_RELAXED);
        pid_t& worker = workers[i % 3];
        if (killed != 0)
        {
            kill(killed, SIGKILL);
        }
        worker = fork();
        if (worker == 0)
        {
            workUntilKilled(shared);
        }
        ASSERT_TRUE(
            waitUntil([&] { return __atomic_load_n(&shared.first, __ATOMIC_RELAXED) > before + i % 7; }))
            << "stuck after " << i << " kills, owner word " << std::hex << shared.mutex.owner;
        int status = SIGKILL;
        ASSERT_EQ(killed != 0 ? waitpid(killed, &status, 0) : 0, killed);
        ASSERT_EQ(status, SIGKILL);
    }
    for (const pid_t worker : workers)
    {
        kill(worker, SIGKILL);
        waitpid(worker, nullptr, 0);
    }
    EXPECT_EQ(pthread_mutex_timedlock_monotonic(&shared.mutex, deadlineIn(10000)), 0);
}

TEST(PlatformMutex, ReportsThreadsThatWaitForEachOtherAndKeepsWaiting)
{
    const LogCapture log;
    _sync first = makeMutex();
    _sync second = makeMutex();
    ASSERT_EQ(pthread_mutex_lock(&first), 0);
    std::thread other(
        [&]
        {
            EXPECT_EQ(pthread_mutex_lock(&second), 0);
            EXPECT_EQ(pthread_mutex_lock(&first), 0);
            EXPECT_EQ(pthread_mutex_unlock(&first) + pthread_mutex_unlock(&second), 0);
        });
    ASSERT_TRUE(hasWaiter(first));
    EXPECT_EQ(pthread_mutex_timedlock_monotonic(&second, deadlineIn(50)), ETIMEDOUT);
    EXPECT_EQ(pthread_mutex_unlock(&first), 0);
    EXPECT_EQ(pthread_mutex_lock(&second), 0);
    other.join();
    ASSERT_EQ(log.size(), 1U);
    const std::string expected = "deadlock: thread " + std::to_string(kernelThreadSelf()) + " waits for";
    EXPECT_EQ(log.lines()[0].text.find(expected), 0U) << log.lines()[0].text;
}

TEST(PlatformMutex, IsAbandonedInAForkedChildWhenItsOwnerStayedBehind)
{
    _sync own = makeMutex();
    _sync others = makeMutex();
    _sync shared = makeMutex(SHARED);
    const Holder holder(others);
    ASSERT_EQ(pthread_mutex_lock(&own) + pthread_mutex_lock(&shared), 0);
    const auto body = [&]
    {
        EXPECT_EQ(pthread_mutex_unlock(&own), EPERM) << "the child is another owner";
        EXPECT_EQ(pthread_mutex_lock(&own), 0);
        EXPECT_EQ(pthread_mutex_trylock(&others), 0);
        EXPECT_TRUE(takeOwnerDied(&own) && takeOwnerDied(&others));
        EXPECT_EQ(pthread_mutex_timedlock_monotonic(&shared, deadlineIn(1)), ETIMEDOUT) << "its owner lives";
        return 0;
    };
    const ChildResult result = ChildProcess::run(body);
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_EQ(pthread_mutex_unlock(&own) + pthread_mutex_unlock(&shared), 0) << "nothing has changed here";
}

/// A store of permits in which every wake-up counts: none may get lost.
struct Permits
{
    _sync mutex = makeMutex(SHARED);
    _sync condition = {SHARED_CONDITION, 0U};
    int available = 0;

    static constexpr unsigned int SHARED_CONDITION = 0x40000000U;

    void give(bool signalLocked)
    {
        pthread_mutex_lock(&mutex);
        ++available;
        signalLocked ? pthread_cond_signal(&condition) : 0;
        pthread_mutex_unlock(&mutex);
        signalLocked ? 0 : pthread_cond_signal(&condition);
    }

    /// \return false when a wait that must end by a wake-up did not.
    bool take(bool timed)
    {
        bool woken = true;
        pthread_mutex_lock(&mutex);
        while (available == 0 && woken)
        {
            const int error = pthread_cond_timedwait(&condition, &mutex, deadlineIn(timed ? 1 : 60000));
            woken = timed || error == 0;
        }
        available -= woken ? 1 : 0;
        pthread_mutex_unlock(&mutex);
        return woken;
    }
};

TEST(PlatformCondition, LosesNoWakeUpAmongManyThreadsAndProcesses)
{
    const int rounds = slowness() == 1 ? 5000 : 500;
    auto& permits = makeShared<Permits>();
    const SignalStorm storm(SignalStorm::WHOLE_PROCESS);
    const auto play = [&](int index)
    {
        bool woken = true;
        for (int i = 0; i < rounds && woken; ++i)
        {
            index % 2 == 0 ? permits.give(index != 0) : void(woken = permits.take(index == 1));
        }
        EXPECT_TRUE(woken) << "a wake-up was lost";
        return woken ? 0 : 1;
    };
    const auto giver = [&] { return play(6); };
    inThreads(8, [&](int index) { index == 6 ? ChildProcess::run(giver).exitStatus : play(index); });
    EXPECT_EQ(permits.available, 0);
}

/// The sum of the numbers of so many threads that all live at the same time.
int sumOfNumbers(int count)
{
    std::atomic<int> arrived{0};
    std::atomic<int> sum{0};
    KoTest::inThreads(count,
                      [&](int)
                      {
                          sum += KoPlatform::threadSelf();
                          ++arrived;
                          EXPECT_TRUE(KoTest::waitUntil([&] { return arrived == count; }));
                      });
    return sum;
}

TEST(PlatformThread, NumbersThreadsFromTheLowestFreeOneAndStartsOverInAForkedChild)
{
    EXPECT_EQ(KoPlatform::threadSelf(), 1) << "the main thread";
    EXPECT_EQ(sumOfNumbers(40), 40 * 43 / 2) << "2 to 41";
    EXPECT_EQ(sumOfNumbers(40), 40 * 43 / 2) << "numbers of ended threads are used again";
    const auto child = []
    {
        EXPECT_EQ(KoPlatform::threadSelf(), 1) << "the child's only thread is its main thread";
        EXPECT_EQ(KoPlatform::kernelThreadSelf(), static_cast<unsigned int>(getpid()));
        // A sanitizer allows no threads in a forked child.
        EXPECT_TRUE(!KoTest::FaultInjection::isAvailable() || sumOfNumbers(2) == 2 + 3);
        return 0;
    };
    KoTest::inThreads(1,
                      [&](int)
                      {
                          EXPECT_EQ(KoPlatform::threadSelf(), 2);
                          const KoTest::ChildResult result = KoTest::ChildProcess::run(child);
                          EXPECT_EQ(result.exitStatus, 0) << result.describe();
                          EXPECT_EQ(KoPlatform::threadSelf(), 2);
                      });
}

} // namespace
