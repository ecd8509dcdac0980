#include "pf/oswrapper/KoTriggerAccess.h"

#include <cerrno>
#include <thread>

#include <gtest/gtest.h>

#include "pf/platform/KoPlatformSync.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/Deadline.h"
#include "tests/support/SignalStorm.h"

namespace
{

using Trigger = KoOSTypes::TRIGGER_HANDLE;

TEST(KoTriggerAccess, StaysSetOnceAndRefusesEverythingAfterItsEnd)
{
    Trigger trigger = KoOSTypes::sInvalidTriggerHandle;
    ASSERT_TRUE(KoTriggerAccess::create(trigger));
    EXPECT_EQ(KoTriggerAccess::tryWait(trigger), 0);
    for (int round = 0; round < 2; ++round)
    {
        EXPECT_TRUE(KoTriggerAccess::signal(trigger));
        EXPECT_TRUE(KoTriggerAccess::signal(trigger));
        EXPECT_TRUE(round == 0 ? KoTriggerAccess::wait(trigger) : KoTriggerAccess::wait(trigger, 0));
        EXPECT_EQ(KoTriggerAccess::tryWait(trigger), 0);
    }
    EXPECT_EQ(KoTriggerAccess::destroy(trigger), 0);
    const KoTest::AssertionCounter assertions(1);
    EXPECT_FALSE(KoTriggerAccess::wait(trigger, 20));
    EXPECT_FALSE(KoTriggerAccess::wait(trigger));
    EXPECT_FALSE(KoTriggerAccess::signal(trigger));
    EXPECT_EQ(KoTriggerAccess::tryWait(trigger), -1);
    EXPECT_EQ(KoTriggerAccess::destroy(trigger), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(KoTriggerAccess, WaitsAtMostSoLongAndReportsNothingButAnInterruption)
{
    Trigger trigger{};
    ASSERT_TRUE(KoTriggerAccess::create(trigger));
    for (const int timeoutMs : {0, 20, 1001})
    {
        const KoTest::AssertionCounter assertions(0);
        const KoTest::Stopwatch watch;
        EXPECT_FALSE(KoTriggerAccess::wait(trigger, timeoutMs));
        EXPECT_TRUE(watch.isWithin(static_cast<unsigned int>(timeoutMs), 2000));
    }
    const KoTest::SignalStorm storm(KoTest::SignalStorm::CALLING_THREAD, 100);
    const KoTest::AssertionCounter assertions(1);
    const KoTest::Stopwatch watch;
    EXPECT_FALSE(KoTriggerAccess::wait(trigger, 60000));
    EXPECT_TRUE(watch.isWithin(0, 10000)) << "ended by the interruption";
}

TEST(KoTriggerAccess, WakesInTurnsThroughInterruptions)
{
    constexpr int ROUNDS = 2000;
    Trigger there{};
    Trigger back{};
    ASSERT_TRUE(KoTriggerAccess::create(there) && KoTriggerAccess::create(back));
    const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS, 100);
    KoTest::inThreads(
        2,
        [&](int index)
        {
            for (int i = 0; i < ROUNDS; ++i)
            {
                EXPECT_TRUE(index == 0 ? KoTriggerAccess::signal(there) : KoTriggerAccess::wait(there));
                EXPECT_TRUE(index == 0 ? KoTriggerAccess::wait(back, -1) : KoTriggerAccess::signal(back));
            }
        });
    EXPECT_EQ(KoTriggerAccess::destroy(there) + KoTriggerAccess::destroy(back), 0);
}

TEST(KoPlatformSemaphore, CountsToItsLimitAndIsNotDestroyedUnderAWaiter)
{
    constexpr unsigned int LIMIT = KoPlatform::SEMAPHORE_VALUE_MAX;
    _sync semaphore{};
    EXPECT_EQ(KoPlatform::sem_init(&semaphore, 0, LIMIT + 1U), -1);
    ASSERT_EQ(KoPlatform::sem_init(&semaphore, 1, LIMIT - 1U), 0);
    EXPECT_EQ(KoPlatform::sem_post(&semaphore), 0);
    EXPECT_EQ(KoPlatform::sem_post(&semaphore), -1);
    EXPECT_EQ(errno, EOVERFLOW);
    EXPECT_EQ(KoPlatform::sem_timedwait_monotonic(&semaphore, 0ULL), 0) << "a unit that is there";
    for (unsigned int left = LIMIT - 1U; left > 0U; --left)
        ASSERT_EQ(KoPlatform::sem_wait(&semaphore), 0);
    EXPECT_EQ(KoPlatform::sem_timedwait_monotonic(&semaphore, 0ULL), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    std::thread waiter([&] { EXPECT_EQ(KoPlatform::sem_wait(&semaphore), 0); });
    EXPECT_TRUE(KoTest::waitUntil([&] { return __atomic_load_n(&semaphore.owner, __ATOMIC_RELAXED) != 0U; }));
    EXPECT_EQ(KoPlatform::sem_destroy(&semaphore), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(KoPlatform::sem_post(&semaphore), 0);
    waiter.join();
    EXPECT_EQ(KoPlatform::sem_destroy(&semaphore), 0);
}

TEST(KoPlatformSemaphore, LosesNoUnitAmongThreadsWhoseWaitsAreInterruptedAndTimeOut)
{
    _sync semaphore{};
    ASSERT_EQ(KoPlatform::sem_init(&semaphore, 0, 0U), 0);
    const int posts = KoTest::slowness() == 1 ? 20000 : 2000;
    const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS, 100);
    KoTest::inThreads(6,
                      [&](int index)
                      {
                          for (int i = 0; i < posts; ++i)
                          {
                              const auto wait = [&]
                              {
                                  const unsigned long long soon = KoPlatform::monotonicNow() + 20000ULL;
                                  return index == 1 ? KoPlatform::sem_timedwait_monotonic(&semaphore, soon)
                                                    : KoPlatform::sem_wait(&semaphore);
                              };
                              while ((index % 2 == 0 ? KoPlatform::sem_post(&semaphore) : wait()) != 0)
                                  EXPECT_TRUE(errno == EINTR || errno == ETIMEDOUT || errno == EOVERFLOW);
                          }
                      });
    EXPECT_EQ(semaphore.owner, 0U) << "no unit and no waiter is left";
}

} // namespace
