#include "pf/platform/KoPlatformThread.h"

#include "pf/platform/KoThreadRecord.h"

#include <cerrno>
#include <pthread.h>
#include <unistd.h>

namespace KoPlatform
{

__thread SThreadIdentity sThreadIdentity __attribute__((tls_model("initial-exec")));

} // namespace KoPlatform

namespace
{

using KoPlatform::sThreadIdentity;

constexpr int FIRST_NUMBER_ABOVE_TABLE = 1 << 16;

bool sIsForkedChild = false;
void (*sForkChildHook)() = nullptr;

/// Runs when a thread with a number ends.
void endThread(void*)
{
    KoPlatform::endRecordOfCaller();
}

/// The key whose destructor tells that a thread ends. It has no destructor of its own: static objects of the
/// process may start and join threads while they are destroyed.
class EndOfThreadKey
{
public:
    EndOfThreadKey()
        : m_valid(pthread_key_create(&m_key, endThread) == 0)
    {
    }
    EndOfThreadKey(const EndOfThreadKey&) = delete;
    EndOfThreadKey& operator=(const EndOfThreadKey&) = delete;

    bool watchCaller() const { return m_valid && pthread_setspecific(m_key, this) == 0; }
    void remove() const
    {
        if (m_valid)
        {
            pthread_key_delete(m_key);
        }
    }

private:
    pthread_key_t m_key = 0;
    bool m_valid;
};

const EndOfThreadKey& endOfThreadKey()
{
    static const EndOfThreadKey sKey;
    return sKey;
}

/// Runs when the library is unloaded: at the end of the process behind all that uses it.
__attribute__((destructor)) void stopWatchingThreads()
{
    endOfThreadKey().remove();
}

/// The child has one thread, with a new kernel id, and it is the main thread.
void startOverInChild()
{
    sThreadIdentity = KoPlatform::SThreadIdentity{0U, 0};
    sIsForkedChild = true;
    KoPlatform::forgetOtherThreads();
    // Relaxed: set before the fork, by this thread or in an order that its caller sees to.
    if (void (*const hook)() = __atomic_load_n(&sForkChildHook, __ATOMIC_RELAXED))
    {
        hook();
    }
}

/// Nothing may be cached before the handler is there that drops it in a child. Registering may allocate, and
/// so lead back here; the flag is set first, so that this ends.
void registerForkHandler()
{
    static bool sRegistered = false;
    if (!__atomic_exchange_n(&sRegistered, true, __ATOMIC_RELAXED) &&
        pthread_atfork(nullptr, nullptr, startOverInChild) != 0)
    {
        __atomic_store_n(&sRegistered, false, __ATOMIC_RELAXED);
    }
}

bool isMainThread()
{
    return static_cast<pid_t>(KoPlatform::kernelThreadSelf()) == getpid();
}

} // namespace

namespace KoPlatform
{

unsigned int loadKernelThreadId()
{
    const int savedErrno = errno;
    registerForkHandler();
    sThreadIdentity.kernelId = static_cast<unsigned int>(gettid());
    errno = savedErrno;
    return sThreadIdentity.kernelId;
}

int loadThreadId()
{
    const int savedErrno = errno;
    if (isMainThread())
    {
        sThreadIdentity.threadId = MAIN_THREAD;
    }
    else
    {
        const int id = takeThreadId();
        // More threads than numbers: the kernel's id, above all numbers of the table, is unique too.
        sThreadIdentity.threadId =
            id != -1 ? id : FIRST_NUMBER_ABOVE_TABLE + static_cast<int>(kernelThreadSelf());
        watchEndOfCaller();
    }
    // Now, so that other threads find the thread by its number.
    callersRecord();
    errno = savedErrno;
    return sThreadIdentity.threadId;
}

bool watchEndOfCaller() noexcept
{
    return endOfThreadKey().watchCaller();
}

bool isForkedChild()
{
    return sIsForkedChild;
}

void setForkChildHook(void (*hook)())
{
    registerForkHandler();
    __atomic_store_n(&sForkChildHook, hook, __ATOMIC_RELAXED);
}

} // namespace KoPlatform
