#include "pf/oswrapper/CKoWaitCondition.h"

#include <cerrno>
#include <climits>
#include <new>
#include <thread>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/CKoMutex.h"
#include "pf/oswrapper/KoConditionVariableAccess.h"
#include "pf/oswrapper/KoSyslog.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/SignalStorm.h"

namespace
{

using KoTest::Stopwatch;

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
    KoMutexAccess::create(mutex, false, false, false);
    const KoTest::SignalStorm storm;
    for (const auto& test : cases)
    {
        const Stopwatch watch;
        errno = 0;
        EXPECT_EQ(KoConditionVariableAccess::wait(condition, mutex, test.timeoutMs), test.result)
            << test.timeoutMs;
        EXPECT_EQ(errno, test.error) << test.timeoutMs;
        EXPECT_TRUE(watch.isWithin(test.lowerMs, test.lowerMs + 500)) << test.timeoutMs;
        EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&mutex), 0) << "held after the wait, " << test.timeoutMs;
        EXPECT_TRUE(KoMutexAccess::lock(mutex, -1));
    }
    KoPlatform::pthread_mutex_unlock(&mutex);
    EXPECT_FALSE(KoConditionVariableAccess::wait(condition, mutex, -1));
    EXPECT_EQ(errno, EPERM) << "not the caller's";
}

/// Two threads hand a turn back and forth; the caller starts.
template <typename Lock>
void takeTurns(Lock& lock, int timeoutMs, bool all)
{
    constexpr int ROUNDS = 200;
    CKoWaitCondition condition;
    int turn = 0;
    const auto play = [&](int own)
    {
        for (int i = 0; i < ROUNDS; ++i)
        {
            lock.lock();
            while (turn != own)
            {
                ASSERT_TRUE(condition.wait(lock, timeoutMs));
                ASSERT_EQ(errno, 0);
            }
            turn = 1 - own;
            EXPECT_EQ(all ? condition.broadcast() : condition.signal(), 0);
            lock.unlock();
        }
    };
    std::thread partner(play, 1);
    play(0);
    partner.join();
    EXPECT_EQ(turn, 0);
}

TEST(CKoWaitCondition, WaitsWithEitherLock)
{
    CKoCriticalSection section;
    takeTurns(section, -1, false);
    takeTurns(section, 60000, true);
    CKoMutex plain(true, CKoMutex::NON_RECURSIVE);
    takeTurns(plain, -1, true);
    CKoMutex recursive(true, CKoMutex::RECURSIVE);
    takeTurns(recursive, 60000, false);
}

TEST(CKoWaitCondition, IsLeftAloneAndLoggedWhenItIsDestroyedUnderAWaiter)
{
    const auto body = []
    {
        alignas(CKoWaitCondition) static unsigned char sStorage[sizeof(CKoWaitCondition)];
        static CKoMutex sMutex(false, CKoMutex::NON_RECURSIVE);
        auto* const condition = new (sStorage) CKoWaitCondition();
        std::thread(
            [condition]
            {
                sMutex.lock();
                condition->wait(sMutex);
            })
            .detach();
        sMutex.unlock();
        const unsigned int* const waiters =
            static_cast<const unsigned int*>(static_cast<const void*>(sStorage));
        const bool waiting =
            KoTest::waitUntil([&] { return __atomic_load_n(waiters, __ATOMIC_RELAXED) == 1U; });
        condition->~CKoWaitCondition();
        return waiting ? 0 : 1;
    };
    const KoTest::ChildResult result = KoTest::ChildProcess::run(body);
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    ASSERT_EQ(result.log.size(), 1U);
    EXPECT_EQ(result.log[0].severity, KoSyslog::Error);
    EXPECT_EQ(result.logTexts()[0],
              "cannot destroy wait condition (operating system error 16, Device or resource busy)");
}

} // namespace
