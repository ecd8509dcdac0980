#include "pf/oswrapper/CKoWaitCondition.h"

#include <climits>

#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoConditionVariableAccess.h"
#include "pf/oswrapper/KoMutexAccess.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/ChildProcess.h"
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
    _sync mutex{};
    const KoTest::SignalStorm storm;
    for (const auto& test : cases)
    {
        EXPECT_TRUE(KoMutexAccess::lock(mutex, -1));
        const KoTest::Stopwatch watch;
        EXPECT_EQ(KoConditionVariableAccess::wait(condition, mutex, test.timeoutMs), test.result);
        EXPECT_EQ(errno, test.error) << test.timeoutMs;
        EXPECT_TRUE(watch.isWithin(test.lowerMs, test.lowerMs + 500)) << test.timeoutMs;
        EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&mutex), 0) << "held after the wait, " << test.timeoutMs;
    }
    EXPECT_FALSE(KoConditionVariableAccess::wait(condition, mutex, -1));
    EXPECT_EQ(errno, EPERM) << "not the caller's";
}

TEST(CKoWaitCondition, IsLoggedWhenItIsDestroyedUnderAWaiter)
{
    const auto body = []
    {
        static CKoCriticalSection sSection;
        auto* const condition = new CKoWaitCondition();
        sSection.lock();
        std::thread waker(
            [condition]
            {
                sSection.lock();
                condition->~CKoWaitCondition();
                _exit(0);
            });
        condition->wait(sSection);
        return 1;
    };
    const KoTest::ChildResult result = KoTest::ChildProcess::run(body);
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_EQ(result.logTexts(),
              std::vector<std::string>{
                  "cannot destroy wait condition (operating system error 16, Device or resource busy)"});
}

} // namespace
