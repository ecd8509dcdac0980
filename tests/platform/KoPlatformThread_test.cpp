#include "pf/platform/KoPlatformThread.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"

namespace
{

/// Threads that all live at the same time; gives their numbers in ascending order.
std::vector<int> numbersOfLivingThreads(int count)
{
    std::vector<int> numbers;
    std::mutex lock;
    std::atomic<int> arrived{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
    {
        threads.emplace_back(
            [&]
            {
                {
                    const std::lock_guard<std::mutex> guard(lock);
                    numbers.push_back(KoPlatform::threadSelf());
                }
                ++arrived;
                EXPECT_TRUE(KoTest::waitUntil([&] { return arrived == count; }));
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

TEST(PlatformThread, NumbersThreadsFromTheLowestFreeOne)
{
    EXPECT_EQ(KoPlatform::threadSelf(), 1) << "the main thread";
    std::vector<int> expected;
    for (int i = 2; i < 2 + 40; ++i)
    {
        expected.push_back(i);
    }
    EXPECT_EQ(numbersOfLivingThreads(40), expected);
    EXPECT_EQ(numbersOfLivingThreads(40), expected) << "numbers of ended threads are used again";
    EXPECT_EQ(numbersOfLivingThreads(1), std::vector<int>{2});
}

TEST(PlatformThread, StartsOverInAForkedChild)
{
    std::thread(
        []
        {
            EXPECT_EQ(KoPlatform::threadSelf(), 2);
            const unsigned int parentKernelId = KoPlatform::kernelThreadSelf();
            const auto body = [&]
            {
                EXPECT_EQ(KoPlatform::threadSelf(), 1) << "the child's only thread is its main thread";
                EXPECT_NE(KoPlatform::kernelThreadSelf(), parentKernelId);
                EXPECT_EQ(KoPlatform::kernelThreadSelf(), static_cast<unsigned int>(getpid()));
                if (KoTest::FaultInjection::isAvailable()) // a sanitizer allows no threads in a forked child
                {
                    EXPECT_EQ(numbersOfLivingThreads(2), (std::vector<int>{2, 3}));
                }
                return 0;
            };
            const KoTest::ChildResult result = KoTest::ChildProcess::run(body);
            EXPECT_EQ(result.exitStatus, 0) << result.describe();
            EXPECT_EQ(KoPlatform::threadSelf(), 2);
        })
        .join();
}

} // namespace
