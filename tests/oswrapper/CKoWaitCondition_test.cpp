#include "pf/oswrapper/CKoWaitCondition.h"

#include <climits>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoConditionVariableAccess.h"
#include "pf/oswrapper/KoMutexAccess.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/oswrapper/TKoAutoLock.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SignalStorm.h"

namespace
{

TEST(KoConditionVariableAccess, TellsByResultAndLastErrorHowAWaitEnded)
{
    const struct
    {
        int timeoutMs;
        bool result;
        int error;
        unsigned int lowerMs;
    } cases[] = {{10, true, ETIMEDOUT, 10},
                 {0, false, ETIMEDOUT, 0},
                 {1001, true, ETIMEDOUT, 1001},
                 {-2, false, EINVAL, 0},
                 {INT_MIN, false, EINVAL, 0}};
    _sync condition{};
    ASSERT_TRUE(KoConditionVariableAccess::create(condition));
    _sync mutex = KoTest::makeMutex(KoTest::RECURSIVE);
    const KoTest::SignalStorm storm;
    for (const auto& test : cases)
    {
        EXPECT_TRUE(KoMutexAccess::lock(mutex, -1) && KoMutexAccess::lock(mutex, -1));
        const KoTest::Stopwatch watch;
        EXPECT_EQ(KoConditionVariableAccess::wait(condition, mutex, test.timeoutMs), test.result);
        EXPECT_EQ(errno, test.error) << test.timeoutMs;
        EXPECT_TRUE(watch.isWithin(test.lowerMs, test.lowerMs + 500)) << test.timeoutMs;
        for (const int error : {0, 0, EPERM})
        {
            EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&mutex), error) << "held as often as before";
        }
    }
    EXPECT_TRUE(KoMutexAccess::lock(mutex, -1));
    KoOperatingSystem::setKernelTimeout(1ULL, 0x6000);
    EXPECT_TRUE(KoConditionVariableAccess::wait(condition, mutex, -1));
    EXPECT_EQ(errno, ETIMEDOUT) << "an armed timeout";
    EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&mutex), 0);
    EXPECT_FALSE(KoConditionVariableAccess::wait(condition, mutex, -1));
    EXPECT_EQ(errno, EPERM) << "not the caller's";
}

TEST(CKoWaitCondition, IsLoggedWhenItIsDestroyedUnderWaitersAndMayBeRightAfterTheyWereWoken)
{
    const KoTest::LogCapture log;
    for (int round = 0; round < 50; ++round)
    {
        alignas(CKoWaitCondition) unsigned char storage[sizeof(CKoWaitCondition)];
        auto* const condition = new (storage) CKoWaitCondition();
        CKoCriticalSection section;
        int waiting = 0;
        const auto play = [&](int)
        {
            const TKoAutoLock<CKoCriticalSection> guard(section);
            if (++waiting < 3)
            {
                EXPECT_TRUE(condition->wait(section));
                EXPECT_EQ(errno, 0);
                return;
            }
            // Refused while two wait, so that it can still wake them.
            round == 0 ? condition->~CKoWaitCondition() : void();
            EXPECT_EQ(condition->broadcast(), 0);
            condition->~CKoWaitCondition();
        };
        KoTest::inThreads(3, play);
    }
    EXPECT_EQ(log.texts(KoSyslog::Error),
              std::vector<std::string>{
                  "cannot destroy wait condition (operating system error 16, Device or resource busy)"});
}

} // namespace
