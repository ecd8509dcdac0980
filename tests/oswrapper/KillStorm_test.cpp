// Processes are killed at random moments inside of shared semaphores and barriers, again and again. After
// each kill all others must go on within a second, with counters that are in bounds.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <random>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoBarrier.h"
#include "pf/oswrapper/KoSemaphoreAccess.h"
#include "tests/platform/LockTestSupport.h"

namespace
{

using namespace KoTest;
using KoOSTypes::SEMHANDLE;

/// What the processes share. Two give and two take units of each semaphore, three meet at the barrier: more
/// than the killed ones leave behind is always on its way.
struct Arena
{
    static constexpr int SEMAPHORES = 2;
    static constexpr int PER_SEMAPHORE = 4;
    static constexpr int MEETING = 3;
    static constexpr int WORKERS = SEMAPHORES * PER_SEMAPHORE + MEETING;

    Arena()
    {
        KoSemaphoreAccess::create(semaphores[0], 0, 1, true);
        KoSemaphoreAccess::create(semaphores[1], 3, 3, true);
    }

    SEMHANDLE semaphores[SEMAPHORES] = {};
    CKoBarrier barrier{MEETING, true};
    std::atomic<unsigned int> steps[WORKERS] = {};
};

void giveUnits(SEMHANDLE& h, std::atomic<unsigned int>& steps)
{
    while (KoSemaphoreAccess::unlock(h) == 0)
    {
        ++steps;
    }
}

void takeUnits(SEMHANDLE& h, std::atomic<unsigned int>& steps)
{
    const int timeoutMs[] = {-1, 0, 50, -1, 1};
    for (unsigned int i = 0U;; ++i)
    {
        if (KoSemaphoreAccess::lock(h, timeoutMs[i % 5U]))
        {
            ++steps;
        }
        else if (errno != EAGAIN && errno != EBUSY && errno != ETIMEDOUT)
        {
            return;
        }
    }
}

/// Works until it is killed; returns when something is wrong.
void work(Arena& arena, int self)
{
    std::atomic<unsigned int>& steps = arena.steps[self];
    const int index = self / Arena::PER_SEMAPHORE;
    if (index < Arena::SEMAPHORES)
    {
        self % 2 == 0 ? giveUnits(arena.semaphores[index], steps) : takeUnits(arena.semaphores[index], steps);
        return;
    }
    for (;; ++steps)
    {
        arena.barrier.wait();
    }
}

pid_t start(Arena& arena, int self)
{
    const pid_t pid = fork();
    if (pid == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        work(arena, self);
        _exit(EXIT_FAILURE);
    }
    return pid;
}

void end(pid_t pid)
{
    int status = 0;
    kill(pid, SIGKILL);
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, SIGKILL) << "it had ended by itself";
}

/// Whether all workers go on. A second is promised; a machine with other work may not run them for that long.
testing::AssertionResult allGoOn(const Arena& arena)
{
    unsigned int before[Arena::WORKERS];
    std::copy(std::begin(arena.steps), std::end(arena.steps), before);
    for (int i = 0; i < Arena::WORKERS; ++i)
    {
        if (!waitUntil([&] { return arena.steps[i] != before[i]; }))
        {
            const SEMHANDLE& h = arena.semaphores[i / Arena::PER_SEMAPHORE % Arena::SEMAPHORES];
            return testing::AssertionFailure()
                   << "worker " << i << " hangs; count " << h.count << ", waiters " << h.waiters << ", owner "
                   << std::hex << h.lock.owner;
        }
    }
    return testing::AssertionSuccess();
}

void expectOrdinary(SEMHANDLE& h)
{
    for (unsigned int i = 0U; i <= h.maximum; ++i)
    {
        EXPECT_EQ(KoSemaphoreAccess::unlock(h), 0);
    }
    EXPECT_EQ(h.count, h.maximum);
    for (unsigned int i = 0U; i <= h.maximum; ++i)
    {
        EXPECT_EQ(KoSemaphoreAccess::lock(h, 100), i < h.maximum);
    }
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(KoSemaphoreAccess::destroy(h), 0);
}

TEST(KillStorm, LeavesSemaphoresAndBarriersUsableForTheOthers)
{
    const char* const wanted = std::getenv("KO_KILL_STORM_SECONDS");
    const std::chrono::seconds length(wanted != nullptr ? std::atol(wanted) : 1);
    std::mt19937 random(std::random_device{}());
    auto& arena = makeShared<Arena>();
    pid_t workers[Arena::WORKERS] = {};
    for (int i = 0; i < Arena::WORKERS; ++i)
    {
        workers[i] = start(arena, i);
    }
    const auto begin = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration slowest{};
    int kills = 0;
    for (auto now = begin; now - begin < length && !HasFailure();)
    {
        const timespec pause = {0, static_cast<long>(random() % 200000U)};
        nanosleep(&pause, nullptr);
        const auto killed = std::chrono::steady_clock::now();
        for (auto left = random() % 12U + 1U; left > 0U; --left, ++kills)
        {
            const auto victim = static_cast<int>(random() % Arena::WORKERS);
            end(workers[victim]);
            workers[victim] = start(arena, victim);
        }
        EXPECT_TRUE(allGoOn(arena)) << "after " << kills << " kills";
        for (const SEMHANDLE& h : arena.semaphores)
        {
            EXPECT_LE(__atomic_load_n(&h.count, __ATOMIC_RELAXED), h.maximum);
        }
        now = std::chrono::steady_clock::now();
        slowest = std::max(slowest, now - killed);
    }
    std::for_each(std::begin(workers), std::end(workers), end);
    std::for_each(std::begin(arena.semaphores), std::end(arena.semaphores), expectOrdinary);
    std::printf(
        "%d kills, all went on after at most %lld ms\n", kills,
        static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count()));
}

} // namespace
