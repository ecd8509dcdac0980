#include "pf/platform/KoPlatformThread.h"

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

constexpr int MAIN_THREAD = 1;
constexpr int BITS_PER_WORD = 32;
constexpr int TABLE_WORDS = 2048;
constexpr unsigned int RESERVED = 0x3U; // 0 stands for no number, 1 is the main thread's

/// One bit per number that is taken. Relaxed throughout: a number guards no data.
unsigned int sTaken[TABLE_WORDS] = {RESERVED};

/// \return the lowest free number of a word, or -1.
int takeFromWord(int index)
{
    unsigned int& word = sTaken[index];
    unsigned int taken = __atomic_load_n(&word, __ATOMIC_RELAXED);
    while (taken != ~0U)
    {
        const int bit = __builtin_ctz(~taken);
        const unsigned int mask = 1U << bit;
        taken = __atomic_fetch_or(&word, mask, __ATOMIC_RELAXED);
        if ((taken & mask) == 0U)
        {
            return index * BITS_PER_WORD + bit;
        }
    }
    return -1;
}

int takeLowestFree()
{
    for (int index = 0; index < TABLE_WORDS; ++index)
    {
        const int id = takeFromWord(index);
        if (id != -1)
        {
            return id;
        }
    }
    // More threads than numbers: the kernel's id, above all numbers of the table, is unique too.
    return TABLE_WORDS * BITS_PER_WORD + static_cast<int>(KoPlatform::kernelThreadSelf());
}

void giveBack(int id)
{
    if (id > MAIN_THREAD && id < TABLE_WORDS * BITS_PER_WORD)
    {
        __atomic_fetch_and(&sTaken[id / BITS_PER_WORD], ~(1U << (id % BITS_PER_WORD)), __ATOMIC_RELAXED);
    }
}

/// Runs when a thread with a number ends.
void endThread(void*)
{
    giveBack(sThreadIdentity.threadId);
    sThreadIdentity.threadId = 0;
}

/// The key whose destructor tells that a thread ends; it goes when the library is unloaded.
class EndOfThreadKey
{
public:
    EndOfThreadKey()
        : m_valid(pthread_key_create(&m_key, endThread) == 0)
    {
    }
    ~EndOfThreadKey()
    {
        if (m_valid)
        {
            pthread_key_delete(m_key);
        }
    }
    EndOfThreadKey(const EndOfThreadKey&) = delete;
    EndOfThreadKey& operator=(const EndOfThreadKey&) = delete;

    void watchCaller() const
    {
        if (m_valid)
        {
            pthread_setspecific(m_key, this);
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

bool sIsForkedChild = false;

/// The child has one thread, with a new kernel id, and it is the main thread.
void startOverInChild()
{
    sThreadIdentity = KoPlatform::SThreadIdentity{0U, 0};
    sIsForkedChild = true;
    for (unsigned int& word : sTaken)
    {
        __atomic_store_n(&word, 0U, __ATOMIC_RELAXED);
    }
    __atomic_store_n(&sTaken[0], RESERVED, __ATOMIC_RELAXED);
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
        sThreadIdentity.threadId = takeLowestFree();
        endOfThreadKey().watchCaller();
    }
    errno = savedErrno;
    return sThreadIdentity.threadId;
}

bool isForkedChild()
{
    return sIsForkedChild;
}

} // namespace KoPlatform
