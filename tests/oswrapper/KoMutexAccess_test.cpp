#include "pf/oswrapper/KoMutexAccess.h"

#include <cerrno>
#include <climits>
#include <thread>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoMutex.h"
#include "pf/oswrapper/KoSyslog.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/Deadline.h"
#include "tests/support/LogCapture.h"

namespace
{

using KoTest::AssertionCounter;
using KoTest::LogCapture;
using KoTest::Stopwatch;

/// What another thread gets with a time-out; it gives the mutex back at once.
bool othersLock(CKoMutex& mutex, int timeoutMs)
{
    bool locked = false;
    std::thread(
        [&]
        {
            errno = EXDEV;
            locked = mutex.lock(timeoutMs);
            EXPECT_EQ(mutex.unlock(), locked ? 0 : EPERM);
            EXPECT_EQ(errno, EXDEV);
        })
        .join();
    return locked;
}

TEST(CKoMutex, LocksByTimeOut)
{
    CKoMutex mutex(true, CKoMutex::NON_RECURSIVE);
    for (const int timeoutMs : {-1, 0, 1, 1500, INT_MAX})
    {
        EXPECT_TRUE(othersLock(mutex, timeoutMs)) << timeoutMs;
    }
    for (const int timeoutMs : {-2, -1000, INT_MIN})
    {
        EXPECT_FALSE(othersLock(mutex, timeoutMs)) << "fails even though it is free, " << timeoutMs;
    }
    ASSERT_TRUE(mutex.lock());
    for (const int timeoutMs : {-2, 0, 1, 60, 1001})
    {
        const Stopwatch watch;
        EXPECT_FALSE(othersLock(mutex, timeoutMs)) << timeoutMs;
        const unsigned int lowerMs = timeoutMs < 0 ? 0U : static_cast<unsigned int>(timeoutMs);
        EXPECT_TRUE(watch.isWithin(lowerMs, lowerMs + 500)) << timeoutMs;
    }
    EXPECT_FALSE(mutex.lock()) << "its owner is not blocked";
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_EQ(mutex.unlock(), EPERM);
}

TEST(CKoMutex, MayBeCreatedLockedAndRecursive)
{
    CKoMutex mutex(false, CKoMutex::RECURSIVE);
    EXPECT_FALSE(othersLock(mutex, 0)) << "the constructing thread's";
    EXPECT_TRUE(mutex.lock());
    EXPECT_TRUE(mutex.lock(0));
    for (int left = 3; left > 0; --left)
    {
        EXPECT_FALSE(othersLock(mutex, 0)) << left;
        EXPECT_EQ(mutex.unlock(), 0);
    }
    EXPECT_TRUE(othersLock(mutex, 0));
}

TEST(KoMutexAccess, KeepsAndReportsALockedMutexThatIsToBeDestroyed)
{
    _sync mutex{};
    KoMutexAccess::create(mutex, false, false, false);
    const LogCapture log;
    {
        const AssertionCounter assertions(1);
        KoMutexAccess::destroy(mutex);
    }
    ASSERT_EQ(log.texts(KoSyslog::Critical), std::vector<std::string>{"Failed to destroy mutex: error=16"});
    EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&mutex), 0) << "still the caller's";
    KoMutexAccess::destroy(mutex);
    EXPECT_EQ(log.size(), 1U);
}

} // namespace
