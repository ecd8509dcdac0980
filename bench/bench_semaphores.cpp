// Semaphores and barriers against what a user would pick instead: the C library's semaphores and barriers, in
// one process and between two.

#include "bench/BenchSupport.h"
#include "pf/oswrapper/CKoBarrier.h"
#include "pf/oswrapper/CKoCountingSemaphore.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <climits>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/wait.h>

namespace
{

using namespace KoBench;

constexpr bool SHARED = true;
constexpr int MAXIMUM = 10;

class OwnSemaphore
{
public:
    OwnSemaphore(int initial, bool shared)
        : m_semaphore(initial, MAXIMUM, shared)
    {
    }
    void take() { m_semaphore.lock(-1); }
    void give() { m_semaphore.unlock(); }

private:
    CKoCountingSemaphore m_semaphore;
};

class PosixSemaphore
{
public:
    PosixSemaphore(unsigned int initial, bool shared) { sem_init(&m_semaphore, shared ? 1 : 0, initial); }
    ~PosixSemaphore() { sem_destroy(&m_semaphore); }
    PosixSemaphore(const PosixSemaphore&) = delete;
    PosixSemaphore& operator=(const PosixSemaphore&) = delete;

    void take() { sem_wait(&m_semaphore); }
    void give() { sem_post(&m_semaphore); }

private:
    sem_t m_semaphore;
};

/// Takes and gives a unit that nobody else wants, in a process that has had a second thread.
template <class Semaphore>
void freeUnit(benchmark::State& state, bool shared)
{
    std::thread([] {}).join();
    Semaphore semaphore(1, shared);
    for (auto _ : state)
    {
        semaphore.take();
        semaphore.give();
    }
}

/// What two partners wake each other with.
template <class Semaphore>
struct Court
{
    explicit Court(bool shared)
        : there(0, shared)
        , back(0, shared)
    {
    }

    void serve()
    {
        while (!ends.load(std::memory_order_relaxed))
        {
            there.take();
            back.give();
        }
    }

    void play(benchmark::State& state)
    {
        for (auto _ : state)
        {
            there.give();
            back.take();
        }
        ends = true;
        there.give();
    }

    Semaphore there;
    Semaphore back;
    std::atomic<bool> ends{false};
};

template <class Semaphore>
void pingPongBetweenThreads(benchmark::State& state, bool pin)
{
    const Pinned pinned(pin);
    Court<Semaphore> court(!SHARED);
    std::thread partner([&] { court.serve(); });
    court.play(state);
    partner.join();
}

template <class Semaphore>
void pingPongBetweenProcesses(benchmark::State& state, bool pin)
{
    using SharedCourt = Court<Semaphore>;
    const Pinned pinned(pin);
    void* const memory =
        mmap(nullptr, sizeof(SharedCourt), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "mmap");
    auto* const court = new (memory) SharedCourt(SHARED);
    const pid_t partner = fork();
    require(partner != -1, "fork");
    if (partner == 0)
    {
        court->serve();
        _exit(EXIT_SUCCESS);
    }
    court->play(state);
    waitpid(partner, nullptr, 0);
    court->~SharedCourt();
    munmap(memory, sizeof(SharedCourt));
}

class PosixBarrier
{
public:
    explicit PosixBarrier(unsigned int participants)
    {
        pthread_barrier_init(&m_barrier, nullptr, participants);
    }
    ~PosixBarrier() { pthread_barrier_destroy(&m_barrier); }
    PosixBarrier(const PosixBarrier&) = delete;
    PosixBarrier& operator=(const PosixBarrier&) = delete;

    void wait() { pthread_barrier_wait(&m_barrier); }

private:
    pthread_barrier_t m_barrier;
};

/// Rounds of four threads that do nothing else.
template <class Barrier>
void roundOfFour(benchmark::State& state, bool pin)
{
    constexpr unsigned int PARTICIPANTS = 4U;
    const Pinned pinned(pin);
    Barrier barrier(PARTICIPANTS);
    std::atomic<long> rounds{LONG_MAX}; // known before the last one begins
    std::vector<std::thread> partners;
    for (unsigned int i = 1U; i < PARTICIPANTS; ++i)
    {
        partners.emplace_back(
            [&]
            {
                for (long done = 0L; done < rounds.load(std::memory_order_relaxed); ++done)
                {
                    barrier.wait();
                }
            });
    }
    long done = 1L;
    for (auto _ : state)
    {
        barrier.wait();
        ++done;
    }
    rounds = done;
    barrier.wait();
    for (std::thread& partner : partners)
    {
        partner.join();
    }
}

template <class Semaphore>
void registerSemaphore(const std::string& who)
{
    benchmark::RegisterBenchmark(("freeUnit/private/" + who).c_str(), &freeUnit<Semaphore>, !SHARED);
    benchmark::RegisterBenchmark(("freeUnit/shared/" + who).c_str(), &freeUnit<Semaphore>, SHARED);
    for (const bool pin : {true, false})
    {
        const std::string end = (pin ? "pinned/" : "anywhere/") + who;
        benchmark::RegisterBenchmark(("pingPong/threads/" + end).c_str(), &pingPongBetweenThreads<Semaphore>,
                                     pin)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("pingPong/processes/" + end).c_str(),
                                     &pingPongBetweenProcesses<Semaphore>, pin)
            ->UseRealTime();
    }
}

template <class Barrier>
void registerBarrier(const std::string& who)
{
    for (const bool pin : {true, false})
    {
        const std::string name = "roundOfFour/" + std::string(pin ? "pinned/" : "anywhere/") + who;
        benchmark::RegisterBenchmark(name.c_str(), &roundOfFour<Barrier>, pin)->UseRealTime();
    }
}

} // namespace

int main(int argc, char** argv)
{
    registerSemaphore<OwnSemaphore>("own");
    registerSemaphore<PosixSemaphore>("posix");
    registerBarrier<CKoBarrier>("own");
    registerBarrier<PosixBarrier>("posix");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
