#pragma once

#include <atomic>
#include <cerrno>
#include <future>
#include <new>
#include <thread>

#include <sys/mman.h>

#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformSync.h"
#include "tests/support/Deadline.h"
#include "tests/support/Threads.h"

namespace KoTest
{

/// A record in memory that this process shares with the children it forks; it stays until the process ends.
template <typename T>
T& makeShared()
{
    return *new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T();
}

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
    KoPlatform::pthread_mutexattr_setrecursive(&attributes, kind & RECURSIVE);
    KoPlatform::pthread_mutexattr_setpshared(&attributes, (kind & SHARED) / SHARED);
    _sync mutex{};
    EXPECT_EQ(KoPlatform::pthread_mutex_init(&mutex, &attributes), 0);
    return mutex;
}

inline unsigned long long deadlineIn(unsigned int ms)
{
    return KoPlatform::monotonicNow() + ms * 1000000ULL;
}

/// Whether a thread comes to wait in the kernel for a mutex.
inline bool hasWaiter(const _sync& mutex)
{
    return waitUntil([&] { return __atomic_load_n(&mutex.owner, __ATOMIC_RELAXED) >> 31U != 0U; });
}

/// Four threads add to a plain counter, each between lock(its index) and unlock().
template <typename Lock, typename Unlock>
void addInTurns(int rounds, Lock lock, Unlock unlock)
{
    constexpr int THREADS = 4;
    const int repeats = slowness() == 1 ? rounds : rounds / 10;
    long counter = 0;
    inThreads(THREADS,
              [&](int index)
              {
                  for (int i = 0; i < repeats; ++i)
                  {
                      lock(index);
                      ++counter;
                      unlock();
                  }
              });
    EXPECT_EQ(counter, static_cast<long>(THREADS) * repeats);
}

/// A thread that locks a mutex and keeps it until it is told to give it back.
class Holder
{
public:
    explicit Holder(_sync& mutex)
        : m_thread(
              [this, &mutex]
              {
                  EXPECT_EQ(KoPlatform::pthread_mutex_lock(&mutex), 0);
                  m_locked.set_value();
                  m_end.get_future().wait();
                  EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&mutex), 0);
              })
    {
        m_locked.get_future().wait();
    }
    ~Holder()
    {
        release();
        m_thread.join();
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    void release()
    {
        if (!m_released.exchange(true))
        {
            m_end.set_value();
        }
    }

private:
    std::atomic<bool> m_released{false};
    std::promise<void> m_locked;
    std::promise<void> m_end;
    std::thread m_thread;
};

} // namespace KoTest
