#include "pf/oswrapper/CKoBarrier.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include <gtest/gtest.h>

#include "tests/support/ChannelPeers.h"
#include "tests/support/SignalStorm.h"

namespace
{

using namespace KoTest;

/// A barrier in memory that processes share.
struct SharedBarrier
{
    CKoBarrier barrier{3U, true};
    std::atomic<long> passed[3] = {};
};

/// Waits so often, and sees that nobody is in another cycle.
void passTogether(SharedBarrier& shared, int self, long rounds)
{
    for (long round = 1; round <= rounds; ++round)
    {
        shared.passed[self].store(round, std::memory_order_relaxed);
        shared.barrier.wait();
        for (const std::atomic<long>& other : shared.passed)
        {
            const long reached = other.load(std::memory_order_relaxed);
            ASSERT_TRUE(reached == round || reached == round + 1) << reached << " in round " << round;
        }
    }
}

TEST(CKoBarrier, KeepsThreadsAndProcessesTogetherForManyCycles)
{
    // All of a million where time does not matter.
    const char* const wanted = std::getenv("KO_BARRIER_CYCLES");
    const long rounds = wanted != nullptr ? std::atol(wanted) : slowness() == 1 ? 30000 : 1000;
    for (const Place place : {IN_THREAD, IN_PROCESS})
    {
        auto& shared = makeShared<SharedBarrier>();
        const SignalStorm storm;
        const Peer first(place, [&] { passTogether(shared, 1, rounds); });
        const Peer second(place, [&] { passTogether(shared, 2, rounds); });
        errno = EXDEV;
        passTogether(shared, 0, rounds);
        EXPECT_EQ(errno, EXDEV);
    }
}

TEST(CKoBarrier, LetsFewerThanTwoParticipantsPassAtOnce)
{
    for (const unsigned int participants : {0U, 1U})
    {
        CKoBarrier barrier(participants);
        for (int i = 0; i < 3; ++i)
        {
            barrier.wait();
            barrier.breakThrough();
        }
    }
    CKoBarrier nobodyCouldFillIt(~0U);
    nobodyCouldFillIt.breakThrough();
}

TEST(CKoBarrier, BreaksACycleAndNeedsAllParticipantsInTheNext)
{
    CKoBarrier barrier(3U);
    std::atomic<int> left{0};
    const auto pass = [&]
    {
        barrier.wait();
        ++left;
    };
    // Nobody waits at first, so that both halves have a broken cycle.
    barrier.breakThrough();
    for (int round = 0; round < 3; ++round)
    {
        std::thread first(pass);
        std::thread second(pass);
        // A thread that has not counted itself yet at the first attempt is released by a later one.
        EXPECT_TRUE(waitUntil(
            [&]
            {
                barrier.breakThrough();
                return left == 2;
            }));
        first.join();
        second.join();
        std::thread third(pass);
        std::thread fourth(pass);
        EXPECT_FALSE(waitUntil([&] { return left != 2; }, 20)) << "two of three";
        barrier.wait();
        third.join();
        fourth.join();
        left = 0;
    }
}

TEST(CKoBarrier, StrandsNobodyWhoArrivesWhileACycleIsBroken)
{
    const int breaks = slowness() == 1 ? 1000 : 100;
    CKoBarrier barrier(3U);
    std::atomic<bool> ends{false};
    std::atomic<long> passed[3] = {};
    const auto pass = [&](int self)
    {
        while (!ends)
        {
            barrier.wait();
            ++passed[self];
        }
        // The others may need one more arrival to see the end.
        barrier.breakThrough();
        barrier.breakThrough();
    };
    std::thread workers[] = {std::thread(pass, 0), std::thread(pass, 1), std::thread(pass, 2)};
    bool stranded = false;
    for (int i = 0; i < breaks && !stranded; ++i)
    {
        // Two breaks can meet a thread on its way to either half. One that were left behind there would keep
        // the other two waiting for ever.
        barrier.breakThrough();
        barrier.breakThrough();
        for (std::atomic<long>& count : passed)
        {
            const long before = count;
            stranded = stranded || !waitUntil([&] { return count > before + 1; });
        }
    }
    EXPECT_FALSE(stranded);
    ends = true;
    std::atomic<bool> joined{false};
    std::thread breaker(
        [&]
        {
            while (!joined)
            {
                barrier.breakThrough();
                std::this_thread::yield();
            }
        });
    for (std::thread& worker : workers)
    {
        worker.join();
    }
    joined = true;
    breaker.join();
}

TEST(CKoBarrier, ServesMoreThreadsThanParticipants)
{
    const int rounds = slowness() == 1 ? 10000 : 500;
    CKoBarrier barrier(2U);
    std::atomic<int> running{5};
    const auto pass = [&](int)
    {
        for (int i = 0; i < rounds; ++i)
        {
            barrier.wait();
        }
        // The last one may find no partner any more.
        for (--running; running != 0; std::this_thread::yield())
        {
            running == 1 ? barrier.breakThrough() : void();
        }
    };
    inThreads(5, pass);
}

TEST(CKoBarrier, MayBeDestroyedByTheFirstThatLeaves)
{
    alignas(CKoBarrier) static unsigned char sStorage[sizeof(CKoBarrier)];
    for (int round = 0; round < 300; ++round)
    {
        auto* const barrier = new (sStorage) CKoBarrier(3U);
        std::thread first([&] { barrier->wait(); });
        std::thread second([&] { barrier->wait(); });
        barrier->wait();
        barrier->~CKoBarrier();
        std::memset(sStorage, 0xFF, sizeof(sStorage));
        first.join();
        second.join();
        EXPECT_EQ(sStorage[0] & sStorage[4] & sStorage[sizeof(sStorage) - 1], 0xFF)
            << "touched after its end";
    }
}

} // namespace
