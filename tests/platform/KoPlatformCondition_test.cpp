#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "pf/platform/KoPlatformSync.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SignalStorm.h"

namespace
{

using namespace KoPlatform;
using KoTest::deadlineIn;
using KoTest::makeMutex;
using KoTest::RECURSIVE;
using KoTest::SHARED;
using KoTest::Stopwatch;

constexpr unsigned int COUNT_BITS = 0x00FFFFFFU;

_sync makeCondition(bool shared = false)
{
    SyncAttributes attributes{};
    pthread_condattr_init(&attributes);
    EXPECT_EQ(pthread_condattr_setclock(&attributes, CLOCK_ID_MONOTONIC), 0);
    EXPECT_EQ(pthread_condattr_setpshared(&attributes, shared ? 1 : 0), 0);
    _sync condition{};
    EXPECT_EQ(pthread_cond_init(&condition, &attributes), 0);
    EXPECT_EQ(pthread_condattr_destroy(&attributes), 0);
    return condition;
}

bool hasWaiters(const _sync& condition, unsigned int count)
{
    return KoTest::waitUntil(
        [&] { return (__atomic_load_n(&condition.count, __ATOMIC_RELAXED) & COUNT_BITS) == count; });
}

TEST(PlatformCondition, TimesOutAtTheDeadlineUnderSignalsWithTheMutexLockedAsOften)
{
    _sync condition = makeCondition();
    _sync mutex = makeMutex(RECURSIVE);
    EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, deadlineIn(60000)), EPERM) << "not the caller's";
    ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
    ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
    for (const unsigned int ms : {0U, 1U, 70U})
    {
        const KoTest::SignalStorm storm;
        const Stopwatch watch;
        const unsigned long long deadline = deadlineIn(ms);
        EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, deadline), ETIMEDOUT);
        EXPECT_GE(monotonicNow(), deadline);
        EXPECT_TRUE(watch.isWithin(ms, ms + 1000));
    }
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM);
    EXPECT_EQ(pthread_cond_destroy(&condition), 0);
}

TEST(PlatformCondition, TakesAnArmedTimeout)
{
    for (const unsigned int states : {TIMEOUT_CONDVAR + 0U, TIMEOUT_CONDVAR | TIMEOUT_MUTEX})
    {
        _sync condition = makeCondition();
        _sync mutex = makeMutex();
        ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
        const unsigned long long time = 30000000ULL;
        const Stopwatch watch;
        ASSERT_EQ(TimerTimeout(CLOCK_ID_MONOTONIC, static_cast<int>(states), nullptr, &time, nullptr), 0);
        EXPECT_EQ(pthread_cond_wait(&condition, &mutex), ETIMEDOUT) << states;
        EXPECT_TRUE(watch.isWithin(30, 1000)) << states;
        EXPECT_EQ(pthread_mutex_unlock(&mutex), 0) << "the mutex is the caller's again";
        EXPECT_EQ(takeTimeout(~0U, nullptr), NO_DEADLINE) << "taken by the call";
    }
}

TEST(PlatformCondition, BoundsTakingTheMutexAgainWhenTheTimeoutNamesThatState)
{
    _sync condition = makeCondition();
    _sync mutex = makeMutex();
    std::thread waiter(
        [&]
        {
            ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
            const unsigned long long time = 200000000ULL * KoTest::slowness();
            TimerTimeout(CLOCK_ID_MONOTONIC, static_cast<int>(TIMEOUT_CONDVAR | TIMEOUT_MUTEX), nullptr,
                         &time, nullptr);
            EXPECT_EQ(pthread_cond_wait(&condition, &mutex), ETIMEDOUT);
            EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM) << "another thread has it";
        });
    ASSERT_TRUE(hasWaiters(condition, 1));
    ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
    EXPECT_EQ(pthread_cond_signal(&condition), 0);
    waiter.join();
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
}

/// Threads that wait for a permit each.
class Waiters
{
public:
    explicit Waiters(int count)
    {
        for (int i = 0; i < count; ++i)
        {
            m_threads.emplace_back([this] { waitOnce(); });
        }
        EXPECT_TRUE(hasWaiters(condition, static_cast<unsigned int>(count)));
    }
    ~Waiters()
    {
        for (std::thread& thread : m_threads)
        {
            thread.join();
        }
    }
    Waiters(const Waiters&) = delete;
    Waiters& operator=(const Waiters&) = delete;

    _sync condition = makeCondition();
    _sync mutex = makeMutex();

private:
    void waitOnce()
    {
        ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
        EXPECT_EQ(pthread_cond_wait(&condition, &mutex), 0);
        EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
    }

    std::vector<std::thread> m_threads;
};

TEST(PlatformCondition, IsNotDestroyedUnderWaitersButRightAfterTheyWereWoken)
{
    for (int round = 0; round < 50; ++round)
    {
        auto waiters = std::make_unique<Waiters>(2);
        if (round == 0)
        {
            EXPECT_EQ(pthread_cond_destroy(&waiters->condition), EBUSY);
        }
        EXPECT_EQ(pthread_cond_broadcast(&waiters->condition), 0);
        EXPECT_EQ(pthread_cond_destroy(&waiters->condition), 0) << round;
        EXPECT_EQ(waiters->condition.count, 0U);
    }
}

/// A store of permits in which every wake-up counts: none may get lost.
struct Permits
{
    _sync mutex = makeMutex(SHARED);
    _sync condition = makeCondition(true);
    int available = 0;
    long taken = 0;

    void give(bool signalLocked)
    {
        pthread_mutex_lock(&mutex);
        ++available;
        if (signalLocked)
        {
            pthread_cond_signal(&condition);
        }
        pthread_mutex_unlock(&mutex);
        if (!signalLocked)
        {
            pthread_cond_signal(&condition);
        }
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
        if (woken)
        {
            --available;
            ++taken;
        }
        pthread_mutex_unlock(&mutex);
        return woken;
    }
};

TEST(PlatformCondition, LosesNoWakeUpAmongManyThreads)
{
    constexpr int THREADS = 3;
    const int rounds = KoTest::slowness() == 1 ? 5000 : 500;
    Permits permits;
    const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS);
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < rounds; ++i)
                {
                    ASSERT_TRUE(permits.take(t == 0)) << "a wake-up was lost";
                }
            });
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < rounds; ++i)
                {
                    permits.give(t != 0);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(permits.taken, static_cast<long>(THREADS) * rounds);
    EXPECT_EQ(permits.available, 0);
}

TEST(PlatformCondition, WorksBetweenProcesses)
{
    struct Pair
    {
        Permits there;
        Permits back;
    };
    const KoTest::SharedMemory<Pair> pair;
    const auto play = [](Permits& own, Permits& others)
    {
        bool woken = true;
        for (int i = 0; i < 200 && woken; ++i)
        {
            own.give(i % 2 == 0);
            woken = others.take(false);
        }
        return woken ? 0 : 1;
    };
    std::thread partner([&] { EXPECT_EQ(play(pair->there, pair->back), 0); });
    const auto body = [&] { return play(pair->back, pair->there); };
    EXPECT_EQ(KoTest::ChildProcess::run(body).exitStatus, 0);
    partner.join();
}

} // namespace
