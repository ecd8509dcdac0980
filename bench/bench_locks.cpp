// Locks and condition variables against what a user would pick instead: the standard mutex, a thread-library
// mutex with priority inheritance, Qt's mutex, and the thread library's condition variable.

#include "bench/BenchSupport.h"
#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/CKoMutex.h"
#include "pf/oswrapper/CKoWaitCondition.h"
#include "pf/oswrapper/TKoAutoLock.h"

#include <benchmark/benchmark.h>

#include <mutex>
#include <pthread.h>
#include <thread>

#ifdef KO_BENCH_QT
#include <QtCore/QMutex>
#endif

namespace
{

/// The thread library's mutex, with or without priority inheritance.
template <int PROTOCOL>
class PthreadMutex
{
public:
    PthreadMutex()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setprotocol(&attributes, PROTOCOL);
        pthread_mutex_init(&m_mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~PthreadMutex() { pthread_mutex_destroy(&m_mutex); }
    PthreadMutex(const PthreadMutex&) = delete;
    PthreadMutex& operator=(const PthreadMutex&) = delete;

    void lock() { pthread_mutex_lock(&m_mutex); }
    void unlock() { pthread_mutex_unlock(&m_mutex); }
    pthread_mutex_t* handle() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

using PriorityInheritingMutex = PthreadMutex<PTHREAD_PRIO_INHERIT>;

/// CKoMutex with the interface that the benchmarks lock through.
class Mutex : public CKoMutex
{
public:
    Mutex()
        : CKoMutex(true, NON_RECURSIVE)
    {
    }
};

/// Locks and unlocks without anybody else around.
template <class Lock>
void uncontended(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state)
    {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}

/// The same in a process that has a second thread, where no library may leave out the atomic exchange.
template <class Lock>
void uncontendedBesideThread(benchmark::State& state)
{
    CKoCriticalSection section;
    section.lock();
    std::thread other(
        [&]
        {
            section.lock();
            section.unlock();
        });
    uncontended<Lock>(state);
    section.unlock();
    other.join();
}

/// Several threads take turns at a short section and do a little work of their own in between.
template <class Lock>
void contended(benchmark::State& state)
{
    static Lock sLock;
    static long sCounter = 0;
    for (auto _ : state)
    {
        sLock.lock();
        benchmark::DoNotOptimize(++sCounter);
        sLock.unlock();
        for (int i = 0; i < 20; ++i)
        {
            benchmark::DoNotOptimize(i);
        }
    }
}

/// The library's condition with one of its locks. LOCKED tells whether the turn is signalled before or after
/// unlocking.
template <class Lock, bool LOCKED>
class OwnTurns
{
public:
    /// Waits until it is no longer that turn. \return whose turn it is.
    int waitWhile(int turn)
    {
        m_lock.lock();
        while (m_turn == turn)
        {
            m_condition.wait(m_lock);
        }
        const int next = m_turn;
        m_lock.unlock();
        return next;
    }
    void give(int turn)
    {
        m_lock.lock();
        m_turn = turn;
        if (LOCKED)
        {
            m_condition.signal();
        }
        m_lock.unlock();
        if (!LOCKED)
        {
            m_condition.signal();
        }
    }

private:
    Lock m_lock;
    CKoWaitCondition m_condition;
    int m_turn = 0;
};

/// The thread library's condition with its default mutex or with one that inherits priorities, as the
/// library's do.
template <bool LOCKED, int PROTOCOL = PTHREAD_PRIO_NONE>
class PthreadTurns
{
public:
    int waitWhile(int turn)
    {
        m_mutex.lock();
        while (m_turn == turn)
        {
            pthread_cond_wait(&m_condition, m_mutex.handle());
        }
        const int next = m_turn;
        m_mutex.unlock();
        return next;
    }
    void give(int turn)
    {
        m_mutex.lock();
        m_turn = turn;
        if (LOCKED)
        {
            pthread_cond_signal(&m_condition);
        }
        m_mutex.unlock();
        if (!LOCKED)
        {
            pthread_cond_signal(&m_condition);
        }
    }

private:
    PthreadMutex<PROTOCOL> m_mutex;
    pthread_cond_t m_condition = PTHREAD_COND_INITIALIZER;
    int m_turn = 0;
};

/// One round trip between two threads, both on one processor or wherever the system puts them. The partner
/// inherits the affinity.
template <class Turns>
void pingPong(benchmark::State& state, bool pin)
{
    constexpr int PING = 0;
    constexpr int PONG = 1;
    constexpr int END = 2;
    const KoBench::Pinned pinned(pin);
    Turns turns;
    std::thread partner(
        [&]
        {
            while (turns.waitWhile(PING) == PONG)
            {
                turns.give(PING);
            }
        });
    for (auto _ : state)
    {
        turns.give(PONG);
        turns.waitWhile(PONG);
    }
    turns.give(END);
    partner.join();
}

template <class Turns>
void pingPongOnOneProcessor(benchmark::State& state)
{
    pingPong<Turns>(state, true);
}

template <class Turns>
void pingPongAnywhere(benchmark::State& state)
{
    pingPong<Turns>(state, false);
}

BENCHMARK_TEMPLATE(uncontended, CKoCriticalSection);
BENCHMARK_TEMPLATE(uncontended, Mutex);
BENCHMARK_TEMPLATE(uncontended, std::mutex);
BENCHMARK_TEMPLATE(uncontended, PriorityInheritingMutex);
#ifdef KO_BENCH_QT
BENCHMARK_TEMPLATE(uncontended, QMutex);
#endif

BENCHMARK_TEMPLATE(uncontendedBesideThread, CKoCriticalSection);
BENCHMARK_TEMPLATE(uncontendedBesideThread, Mutex);
BENCHMARK_TEMPLATE(uncontendedBesideThread, std::mutex);
BENCHMARK_TEMPLATE(uncontendedBesideThread, PriorityInheritingMutex);
#ifdef KO_BENCH_QT
BENCHMARK_TEMPLATE(uncontendedBesideThread, QMutex);
#endif

// Long enough for the threads to meet.
BENCHMARK_TEMPLATE(contended, CKoCriticalSection)->Threads(2)->Threads(4)->MinTime(0.3)->UseRealTime();
BENCHMARK_TEMPLATE(contended, PriorityInheritingMutex)->Threads(2)->Threads(4)->MinTime(0.3)->UseRealTime();
BENCHMARK_TEMPLATE(contended, std::mutex)->Threads(2)->Threads(4)->MinTime(0.3)->UseRealTime();

using OwnTurnsAfter = OwnTurns<CKoCriticalSection, false>;
using OwnTurnsLocked = OwnTurns<CKoCriticalSection, true>;
using InheritingTurnsLocked = PthreadTurns<true, PTHREAD_PRIO_INHERIT>;

BENCHMARK_TEMPLATE(pingPongOnOneProcessor, OwnTurnsAfter)->UseRealTime();
BENCHMARK_TEMPLATE(pingPongOnOneProcessor, PthreadTurns<false>)->UseRealTime();
BENCHMARK_TEMPLATE(pingPongOnOneProcessor, OwnTurnsLocked)->UseRealTime();
BENCHMARK_TEMPLATE(pingPongOnOneProcessor, PthreadTurns<true>)->UseRealTime();
BENCHMARK_TEMPLATE(pingPongOnOneProcessor, InheritingTurnsLocked)->UseRealTime();
BENCHMARK_TEMPLATE(pingPongAnywhere, OwnTurnsAfter)->UseRealTime();
BENCHMARK_TEMPLATE(pingPongAnywhere, PthreadTurns<false>)->UseRealTime();
BENCHMARK_TEMPLATE(pingPongAnywhere, OwnTurnsLocked)->UseRealTime();
BENCHMARK_TEMPLATE(pingPongAnywhere, PthreadTurns<true>)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
