#pragma once

#include <cerrno>
#include <new>
#include <thread>
#include <vector>

#include <semaphore.h>
#include <sys/mman.h>

#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformSync.h"
#include "tests/support/Deadline.h"

namespace KoTest
{

/// A record in memory that this process shares with the children it forks.
template <typename T>
class SharedMemory
{
public:
    SharedMemory()
        : m_object(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                       T())
    {
    }
    ~SharedMemory() { munmap(m_object, sizeof(T)); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    T* operator->() const { return m_object; }

private:
    T* m_object;
};

enum MutexKind
{
    PLAIN = 0,
    RECURSIVE = 1,
    SHARED = 2
};

/// A platform mutex of a kind.
inline _sync makeMutex(int kind = PLAIN)
{
    KoPlatform::SyncAttributes attributes{};
    KoPlatform::pthread_mutexattr_init(&attributes);
    KoPlatform::pthread_mutexattr_setrecursive(&attributes, (kind & RECURSIVE) != 0 ? 1 : 0);
    KoPlatform::pthread_mutexattr_setpshared(&attributes, (kind & SHARED) != 0 ? 1 : 0);
    _sync mutex{};
    EXPECT_EQ(KoPlatform::pthread_mutex_init(&mutex, &attributes), 0);
    return mutex;
}

inline unsigned long long deadlineIn(unsigned int ms)
{
    return KoPlatform::monotonicNow() + ms * 1000000ULL;
}

/// Runs a call in a thread of its own and gives its result.
template <typename Call>
auto inOtherThread(Call call) -> decltype(call())
{
    decltype(call()) result{};
    std::thread([&] { result = call(); }).join();
    return result;
}

/// Four threads add to a plain counter, each between lock(its index) and unlock().
template <typename Lock, typename Unlock>
void addInTurns(int rounds, Lock lock, Unlock unlock)
{
    constexpr int THREADS = 4;
    const int repeats = slowness() == 1 ? rounds : rounds / 10;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < THREADS; ++index)
    {
        threads.emplace_back(
            [&, index]
            {
                for (int i = 0; i < repeats; ++i)
                {
                    lock(index);
                    ++counter;
                    unlock();
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(counter, static_cast<long>(THREADS) * repeats);
}

/// A thread that locks a mutex and keeps it until it is told to give it back, or to end without doing so.
class Holder
{
public:
    explicit Holder(_sync& mutex)
        : m_mutex(mutex)
    {
        sem_init(&m_locked, 0, 0);
        sem_init(&m_end, 0, 0);
        m_thread = std::thread([this] { run(); });
        sem_wait(&m_locked);
    }
    ~Holder()
    {
        release();
        sem_destroy(&m_locked);
        sem_destroy(&m_end);
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    void release() { end(true); }
    void die() { end(false); }

private:
    void end(bool unlock)
    {
        if (m_thread.joinable())
        {
            m_unlock = unlock;
            sem_post(&m_end);
            m_thread.join();
        }
    }

    void run()
    {
        EXPECT_EQ(KoPlatform::pthread_mutex_lock(&m_mutex), 0);
        sem_post(&m_locked);
        while (sem_wait(&m_end) != 0)
        {
        }
        if (m_unlock)
        {
            EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&m_mutex), 0);
        }
    }

    _sync& m_mutex;
    sem_t m_locked{};
    sem_t m_end{};
    bool m_unlock = false;
    std::thread m_thread;
};

} // namespace KoTest
