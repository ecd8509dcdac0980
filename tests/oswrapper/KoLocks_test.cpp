#include "pf/oswrapper/CKoCriticalSection.h"

#include <cerrno>
#include <climits>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoMutex.h"
#include "pf/oswrapper/CKoWaitCondition.h"
#include "pf/oswrapper/KoConditionVariableAccess.h"
#include "pf/oswrapper/KoMutexAccess.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/oswrapper/TKoAutoLock.h"
#include "pf/oswrapper/TKoInplaceFactory_0.h"
#include "pf/oswrapper/TKoOptional.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SignalStorm.h"

namespace
{

/// The record, which the tests may look at but not touch.
const _sync& recordOf(const CKoCriticalSection& section)
{
    return *static_cast<const _sync*>(static_cast<const void*>(&section));
}

TEST(CKoCriticalSection, ExcludesContendingThreads)
{
    CKoCriticalSection section;
    const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS);
    KoTest::addInTurns(
        50000, [&](int) { section.lock(); }, [&] { section.unlock(); });
    EXPECT_EQ(recordOf(section).owner, 0U);
}

TEST(CKoCriticalSection, DoesNotBlockItsOwnerWhoseFirstUnlockReleases)
{
    const auto relock = [](int)
    {
        CKoCriticalSection section;
        errno = EXDEV;
        const unsigned int self = KoPlatform::kernelThreadSelf();
        for (const bool again : {true, true, false, false})
        {
            again ? section.lock() : section.unlock();
            EXPECT_EQ(recordOf(section).owner, again ? self : 0U);
        }
        EXPECT_EQ(errno, EXDEV);
    };
    // The fast paths differ in a process with several threads.
    relock(0);
    KoTest::inThreads(1, relock);
}

TEST(CKoCriticalSection, IsNotReleasedByOthersNorLostToAnArmedTimeout)
{
    CKoCriticalSection section;
    section.lock();
    std::thread other(
        [&]
        {
            section.unlock();
            KoOperatingSystem::setKernelTimeout(1ULL, 0x2000);
            const TKoAutoLock<CKoCriticalSection> guard(section);
            EXPECT_EQ(recordOf(section).owner & 0x7FFFFFFFU, KoPlatform::kernelThreadSelf());
        });
    EXPECT_TRUE(KoTest::hasWaiter(recordOf(section)));
    section.unlock();
    other.join();
}

TEST(TKoOptional, HoldsASectionWhileItsFlagIsSetAndLogsOneThatIsDestroyedLocked)
{
    using Optional = TKoOptional<CKoCriticalSection, 8, 4>;
    const KoPrivate::TKoInplaceFactory_0 factory;
    const KoTest::LogCapture log;
    {
        Optional optional;
        optional.destroy();
        EXPECT_FALSE(Optional::SKoHidden::is_initialized(optional));
        optional.construct(factory);
        optional.get()->lock();
        optional.reset(factory);
        EXPECT_TRUE(Optional::SKoHidden::is_initialized(optional));
        EXPECT_EQ(recordOf(*optional.get()).owner, 0U) << "a new one";
        EXPECT_EQ(log.size(), 1U);
        optional.get()->lock();
    }
    factory.apply<CKoCriticalSection>(nullptr);
    EXPECT_EQ(log.texts(KoSyslog::Critical),
              std::vector<std::string>(2, "Failed to destroy CKoCriticalSection: error=16"));
}

/// What another thread gets with a time-out, and when; it gives the mutex back at once.
void expectLock(CKoMutex& mutex, int timeoutMs, bool expected, unsigned int lowerMs)
{
    const KoTest::Stopwatch watch;
    errno = EXDEV;
    EXPECT_EQ(mutex.lock(timeoutMs), expected) << timeoutMs;
    EXPECT_EQ(mutex.unlock(), expected ? 0 : EPERM);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_TRUE(watch.isWithin(lowerMs, lowerMs + 500)) << timeoutMs;
}

TEST(CKoMutex, LocksByTimeOutAndMayBeCreatedLockedAndRecursive)
{
    CKoMutex free(true, CKoMutex::NON_RECURSIVE);
    CKoMutex locked(false, CKoMutex::RECURSIVE);
    EXPECT_TRUE(locked.lock());
    EXPECT_TRUE(locked.lock(0));
    const auto lock = [&](int)
    {
        for (const int timeoutMs : {INT_MIN, -2, -1, 0, 1, 1500, INT_MAX})
        {
            expectLock(free, timeoutMs, timeoutMs >= -1, 0);
        }
        for (const int timeoutMs : {-2, 0, 1, 60, 1001})
        {
            expectLock(locked, timeoutMs, false, static_cast<unsigned int>(std::max(timeoutMs, 0)));
        }
    };
    KoTest::inThreads(1, lock);
    for (int left = 3; left > 0; --left)
    {
        KoTest::inThreads(1, [&](int) { expectLock(locked, 0, false, 0); });
        EXPECT_EQ(locked.unlock(), 0);
    }
    KoTest::inThreads(1, [&](int) { expectLock(locked, 0, true, 0); });
}

TEST(KoMutexAccess, KeepsAndReportsALockedMutexThatIsToBeDestroyed)
{
    _sync mutex{};
    KoMutexAccess::create(mutex, false, false, false);
    EXPECT_FALSE(KoMutexAccess::lock(mutex, -1)) << "its owner is not blocked";
    const KoTest::LogCapture log;
    {
        const KoTest::AssertionCounter assertions(1);
        KoMutexAccess::destroy(mutex);
    }
    EXPECT_EQ(log.texts(KoSyslog::Critical), std::vector<std::string>{"Failed to destroy mutex: error=16"});
    EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&mutex), 0) << "still the caller's";
    KoMutexAccess::destroy(mutex);
}

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
