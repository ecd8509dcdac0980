#include "pf/oswrapper/KoSemaphoreAccess.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoBinarySemaphore.h"
#include "pf/oswrapper/CKoCountingSemaphore.h"
#include "pf/oswrapper/KoSyslog.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChannelPeers.h"
#include "tests/support/SignalStorm.h"

namespace
{

using namespace KoTest;
using KoOSTypes::SEMHANDLE;

/// A record in memory that processes share.
SEMHANDLE& makeSemaphore(int initial, int maximum, bool shared = false)
{
    auto& h = makeShared<SEMHANDLE>();
    KoSemaphoreAccess::create(h, initial, maximum, shared);
    EXPECT_EQ(h.valid, 1);
    return h;
}

/// Takes a unit and expects the outcome's error number.
void expectLock(SEMHANDLE& h, int timeoutMs, int error)
{
    errno = EXDEV;
    EXPECT_EQ(KoSemaphoreAccess::lock(h, timeoutMs), error == 0);
    EXPECT_EQ(errno, error) << timeoutMs;
}

bool waitForWaiters(const SEMHANDLE& h, unsigned int count)
{
    // Those that are counted sleep or are about to, and own the lock until they do.
    return waitUntil([&] { return __atomic_load_n(&h.waiters, __ATOMIC_SEQ_CST) == count; }) &&
           waitUntil([&] { return __atomic_load_n(&h.lock.owner, __ATOMIC_SEQ_CST) == 0U; });
}

TEST(KoSemaphoreAccess, StartsClampedAndDropsUnitsBeyondTheMaximum)
{
    const struct
    {
        int initial;
        int maximum;
        unsigned int count;
    } cases[] = {{5, 3, 3U}, {-2, 3, 0U}, {2, 3, 2U}, {INT_MAX, INT_MAX, INT_MAX}, {INT_MIN, 1, 0U}};
    for (const auto& test : cases)
    {
        SEMHANDLE h{};
        KoSemaphoreAccess::create(h, test.initial, test.maximum, true);
        EXPECT_EQ(h.count, test.count);
        EXPECT_EQ(h.maximum, static_cast<unsigned int>(test.maximum));
        EXPECT_EQ(KoSemaphoreAccess::destroy(h), 0);
        EXPECT_EQ(std::memcmp(&h, &KoOSTypes::sInvalidSemHandle, sizeof(h)), 0);
    }
    CKoBinarySemaphore binary(false);
    CKoCountingSemaphore counting(1, 2);
    for (int i = 0; i < 3; ++i)
    {
        errno = EXDEV;
        EXPECT_EQ(binary.unlock() + counting.unlock(), 0);
        EXPECT_EQ(errno, EXDEV);
    }
    for (const bool expected : {true, false})
    {
        EXPECT_EQ(binary.lock(0), expected);
        EXPECT_EQ(errno, expected ? 0 : EAGAIN);
    }
    EXPECT_TRUE(counting.lock() && counting.lock(100));
    EXPECT_FALSE(counting.lock(-2) || counting.lock(INT_MIN));
    EXPECT_EQ(errno, EAGAIN);
}

TEST(KoSemaphoreAccess, ReportsAMaximumBelowOneAndRefusesWhatWasNotCreated)
{
    SEMHANDLE h{};
    for (const int maximum : {0, -1, INT_MIN})
    {
        const AssertionCounter assertions(1);
        KoSemaphoreAccess::create(h, 1, maximum, false);
        EXPECT_EQ(h.valid, 0);
    }
    for (const int timeoutMs : {-1, 0, -2, 1000})
    {
        expectLock(h, timeoutMs, EINVAL);
    }
    EXPECT_EQ(KoSemaphoreAccess::unlock(h), EINVAL);
    EXPECT_EQ(KoSemaphoreAccess::destroy(h), 0);
}

TEST(KoSemaphoreAccess, TellsWhyItsLockCouldNotBeTakenAndTimesOutOverIt)
{
    SEMHANDLE& h = makeSemaphore(1, 1);
    const SignalStorm storm;
    {
        const Holder holder(h.lock);
        expectLock(h, 0, EBUSY);
        expectLock(h, -3, EBUSY);
        const Stopwatch watch;
        expectLock(h, 60, ETIMEDOUT);
        EXPECT_TRUE(watch.isWithin(60, 2000));
        const LogCapture log;
        SEMHANDLE copy = h;
        EXPECT_EQ(KoSemaphoreAccess::destroy(copy), EBUSY);
        EXPECT_EQ(copy.valid, 0);
        EXPECT_EQ(log.texts(KoSyslog::Critical),
                  std::vector<std::string>{"Failed to destroy semaphore: error=16"});
    }
    EXPECT_EQ(KoPlatform::pthread_mutex_lock(&h.lock), 0);
    expectLock(h, -1, EDEADLK);
    expectLock(h, 0, EBUSY);
    EXPECT_EQ(KoSemaphoreAccess::unlock(h), EDEADLK);
    EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&h.lock), 0);
    expectLock(h, 1000, 0);
}

TEST(KoSemaphoreAccess, TimesOutWhileItsLockIsAwaitedAfterAWakeUpAndPassesThatOn)
{
    SEMHANDLE& h = makeSemaphore(0, 1);
    std::thread patient([&] { expectLock(h, 60000, 0); });
    ASSERT_TRUE(waitForWaiters(h, 1U));
    std::thread hasty(
        [&]
        {
            const Stopwatch watch;
            expectLock(h, 300, ETIMEDOUT);
            EXPECT_TRUE(watch.isWithin(300, 3000));
        });
    ASSERT_TRUE(waitForWaiters(h, 2U));
    {
        // Both are woken, the hasty one cannot get inside in time. Then the unit comes without a wake-up.
        const Holder holder(h.lock);
        KoPlatform::pthread_cond_broadcast(&h.condition);
        hasty.join();
        h.count = 1U;
    }
    patient.join();
    EXPECT_EQ(h.waiters, 0U);
    EXPECT_EQ(h.count, 0U);
}

TEST(KoSemaphoreAccess, KeepsOneDeadlineWhateverOthersGiveAndTake)
{
    SEMHANDLE& h = makeSemaphore(0, 2);
    std::atomic<bool> ends{false};
    const SignalStorm storm(SignalStorm::WHOLE_PROCESS);
    // A unit that is gone again whenever the waiter gets inside.
    const auto disturb = [&]
    {
        while (!ends)
        {
            KoPlatform::pthread_mutex_lock(&h.lock);
            __atomic_store_n(&h.count, 1U, __ATOMIC_RELAXED);
            KoPlatform::pthread_cond_broadcast(&h.condition);
            __atomic_store_n(&h.count, 0U, __ATOMIC_RELAXED);
            KoPlatform::pthread_mutex_unlock(&h.lock);
            std::this_thread::yield();
        }
    };
    std::thread first(disturb);
    std::thread second(disturb);
    for (int i = 0; i < 8; ++i)
    {
        const Stopwatch watch;
        const bool taken = KoSemaphoreAccess::lock(h, 60);
        EXPECT_EQ(errno, taken ? 0 : ETIMEDOUT);
        EXPECT_TRUE(watch.isWithin(taken ? 0 : 60, 3000));
    }
    ends = true;
    first.join();
    second.join();
}

/// Moves a unit from one semaphore to another.
void moveUnit(SEMHANDLE& from, SEMHANDLE& to, int number)
{
    constexpr int LONG_MS = 60000;
    const int timeoutMs[] = {0, 1, LONG_MS, -1};
    const int timeout = timeoutMs[number % 4];
    while (!KoSemaphoreAccess::lock(from, timeout))
    {
        ASSERT_TRUE(errno == EAGAIN || errno == EBUSY || errno == ETIMEDOUT) << errno;
        ASSERT_NE(timeout, LONG_MS) << "a unit was lost";
    }
    ASSERT_EQ(KoSemaphoreAccess::unlock(to), 0);
}

TEST(KoSemaphoreAccess, LosesNoUnitAmongManyThreadsAndProcesses)
{
    const int rounds = slowness() == 1 ? 2000 : 200;
    for (const bool shared : {false, true})
    {
        SEMHANDLE& empty = makeSemaphore(2, 2, shared);
        SEMHANDLE& full = makeSemaphore(0, 2, shared);
        const SignalStorm storm(SignalStorm::WHOLE_PROCESS);
        const auto play = [&](int index)
        {
            for (int i = 0; i < rounds; ++i)
            {
                index % 2 == 0 ? moveUnit(empty, full, i) : moveUnit(full, empty, i + index);
            }
        };
        {
            const Peer filler(shared ? IN_PROCESS : IN_THREAD, [&] { play(0); });
            const Peer emptier(shared ? IN_PROCESS : IN_THREAD, [&] { play(1); });
            inThreads(4, play);
        }
        EXPECT_EQ(empty.count, 2U);
        EXPECT_EQ(full.count + full.waiters + empty.waiters, 0U);
    }
}

TEST(KoSemaphoreAccess, MayBeDestroyedByWhoeverTookTheLastUnit)
{
    alignas(CKoBinarySemaphore) static unsigned char sStorage[sizeof(CKoBinarySemaphore)];
    for (int round = 0; round < 300; ++round)
    {
        auto* const semaphore = new (sStorage) CKoBinarySemaphore(false);
        std::thread giver([&] { EXPECT_EQ(semaphore->unlock(), 0); });
        while (!semaphore->lock(round % 2 == 0 ? -1 : 0))
        {
        }
        semaphore->~CKoBinarySemaphore();
        std::memset(sStorage, 0xFF, sizeof(sStorage));
        giver.join();
        EXPECT_EQ(sStorage[0] & sStorage[sizeof(sStorage) - 1], 0xFF) << "touched after its end";
    }
}

void* takeWithoutLimit(void* record)
{
    KoSemaphoreAccess::lock(*static_cast<SEMHANDLE*>(record), -1);
    return nullptr;
}

TEST(KoSemaphoreAccess, LetsAWaiterBeEndedWithoutCountingItForEver)
{
    SEMHANDLE& h = makeSemaphore(0, 1);
    const int tid = KoPlatform::ThreadCreate(0, takeWithoutLimit, &h, nullptr);
    ASSERT_TRUE(waitForWaiters(h, 1U));
    EXPECT_EQ(KoPlatform::ThreadDestroy(tid, -1, nullptr), 0);
    EXPECT_EQ(KoPlatform::ThreadJoin_r(tid, nullptr), 0);
    EXPECT_EQ(h.waiters, 0U);
    EXPECT_EQ(KoSemaphoreAccess::unlock(h), 0);
    expectLock(h, 0, 0);
}

TEST(KoSemaphoreAccess, HandsOnTheUnitOfAWaiterThatIsEndedOnItsWayBack)
{
    SEMHANDLE& h = makeSemaphore(0, 1);
    const int tid = KoPlatform::ThreadCreate(0, takeWithoutLimit, &h, nullptr);
    ASSERT_TRUE(waitForWaiters(h, 1U));
    std::thread patient([&] { expectLock(h, 60000, 0); });
    ASSERT_TRUE(waitForWaiters(h, 2U));
    const Stopwatch watch;
    {
        // The first one is woken and comes no further than to the lock.
        const Holder holder(h.lock);
        h.count = 1U;
        KoPlatform::pthread_cond_signal(&h.condition);
        ASSERT_TRUE(hasWaiter(h.lock));
        EXPECT_EQ(KoPlatform::ThreadDestroy(tid, -1, nullptr), 0);
        EXPECT_EQ(KoPlatform::ThreadJoin_r(tid, nullptr), 0);
    }
    patient.join();
    EXPECT_TRUE(watch.isWithin(0, 10000));
    EXPECT_EQ(h.waiters + h.count, 0U);
}

TEST(KoSemaphoreAccess, HandsOnWhatAKilledProcessLeftBehind)
{
    enum Death
    {
        INSIDE,        // with the lock, the unit given, nobody woken
        BEFORE_SIGNAL, // the unit given, nobody woken
        WAITING
    };
    for (const Death death : {INSIDE, BEFORE_SIGNAL, WAITING})
    {
        SEMHANDLE& h = makeSemaphore(0, 1, true);
        std::thread waiter([&] { expectLock(h, 60000, 0); });
        ASSERT_TRUE(waitForWaiters(h, 1U));
        Peer victim(IN_PROCESS,
                    [&]
                    {
                        death == WAITING ? KoSemaphoreAccess::lock(h, -1) : false;
                        KoPlatform::pthread_mutex_lock(&h.lock);
                        h.count = 1U;
                        death == BEFORE_SIGNAL ? KoPlatform::pthread_mutex_unlock(&h.lock) : 0;
                        pause();
                    });
        EXPECT_TRUE(death == WAITING ? waitForWaiters(h, 2U)
                                     : waitUntil(
                                           [&]
                                           {
                                               return __atomic_load_n(&h.count, __ATOMIC_SEQ_CST) == 1U ||
                                                      __atomic_load_n(&h.waiters, __ATOMIC_SEQ_CST) == 0U;
                                           }));
        victim.kill();
        victim.join();
        const Stopwatch watch;
        EXPECT_EQ(death == WAITING ? KoSemaphoreAccess::unlock(h) : 0, 0);
        waiter.join();
        EXPECT_TRUE(watch.isWithin(0, 3000)) << death;
        EXPECT_EQ(KoSemaphoreAccess::unlock(h), 0);
        expectLock(h, 1000, 0);
        expectLock(h, 0, EAGAIN);
        EXPECT_EQ(KoSemaphoreAccess::destroy(h), 0);
    }
}

} // namespace
