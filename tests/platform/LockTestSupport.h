#pragma once

#include <cerrno>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <thread>

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

/// A thread that locks a mutex and keeps it until it is told to give it back, or to end without doing so.
class Holder
{
public:
    explicit Holder(_sync& mutex)
        : m_mutex(mutex)
        , m_thread([this] { run(); })
    {
        std::unique_lock<std::mutex> guard(m_lock);
        m_changed.wait(guard, [this] { return m_state != STARTING; });
    }
    ~Holder() { release(); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    void release() { end(RELEASE); }
    void die() { end(DIE); }

private:
    enum State
    {
        STARTING,
        HOLDING,
        RELEASE,
        DIE
    };

    void setState(State state)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_state = state;
        m_changed.notify_all();
    }

    void end(State state)
    {
        if (m_thread.joinable())
        {
            setState(state);
            m_thread.join();
        }
    }

    void run()
    {
        EXPECT_EQ(KoPlatform::pthread_mutex_lock(&m_mutex), 0);
        setState(HOLDING);
        std::unique_lock<std::mutex> guard(m_lock);
        m_changed.wait(guard, [this] { return m_state > HOLDING; });
        if (m_state == RELEASE)
        {
            EXPECT_EQ(KoPlatform::pthread_mutex_unlock(&m_mutex), 0);
        }
    }

    _sync& m_mutex;
    std::mutex m_lock;
    std::condition_variable m_changed;
    State m_state = STARTING;
    std::thread m_thread;
};

} // namespace KoTest
