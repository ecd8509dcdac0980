#include "pf/oswrapper/KoMutexAccess.h"

#include <climits>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoMutex.h"
#include "pf/oswrapper/KoSyslog.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/LogCapture.h"

namespace
{

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

} // namespace
