#include "pf/platform/KoPlatformThread.h"

#include <atomic>

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/platform/LockTestSupport.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"

namespace
{

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
