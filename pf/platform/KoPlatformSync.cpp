#include "pf/platform/KoPlatformSync.h"

#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformLog.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoSyncRecord.h"
#include "pf/platform/KoThreadSanitizer.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <cerrno>
#include <sched.h>

#if KO_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

static_assert(sizeof(_sync) == 8 && alignof(_sync) == 4, "the record's layout is the same on every target");

namespace
{

using namespace KoPlatform;

// About four microseconds: longer than a short guarded section, shorter than sleeping and being woken.
constexpr int SPIN_COUNT = 100;

// Kernel refusals that pass when another thread has ended or memory is there again.
constexpr unsigned long long PAUSE_NS = 1000000ULL;
constexpr int MAX_PAUSES_OF_DAMAGED_RECORD = 1000;

// Nothing but time breaks a wait for a lock, so a thread that may be ended looks that often.
constexpr unsigned long long SLICE_NS = 100000000ULL;

constexpr int LOG_SEVERITY_ERROR = 2;

// What the kernel did to the owner word is invisible to the thread sanitizer.
void annotateAcquired([[maybe_unused]] _sync& mutex)
{
#if KO_THREAD_SANITIZER
    __tsan_acquire(&mutex.owner);
#endif
}

void annotateReleasing([[maybe_unused]] _sync& mutex)
{
#if KO_THREAD_SANITIZER
    __tsan_release(&mutex.owner);
#endif
}

void relaxProcessor()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

/// Whether another thread can run while this one spins.
bool hasSeveralProcessors()
{
    // The same for every writer, so relaxed: 0 until asked, then 1 or 2.
    static int sProcessors = 0;
    int processors = __atomic_load_n(&sProcessors, __ATOMIC_RELAXED);
    if (processors == 0)
    {
        const int savedErrno = errno;
        cpu_set_t allowed;
        const bool several = sched_getaffinity(0, sizeof(allowed), &allowed) != 0 || CPU_COUNT(&allowed) > 1;
        errno = savedErrno;
        processors = several ? 2 : 1;
        __atomic_store_n(&sProcessors, processors, __ATOMIC_RELAXED);
    }
    return processors > 1;
}

/// Replaces the owner word. Acquire pairs with the release in pthread_mutex_unlock and
/// CKoCriticalSection::unlock.
bool exchangeOwner(_sync& mutex, unsigned int from, unsigned int to)
{
    return __atomic_compare_exchange_n(&mutex.owner, &from, to, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
}

bool takeFree(_sync& mutex, unsigned int self)
{
    return exchangeOwner(mutex, 0U, self);
}

void setCount(_sync& mutex, unsigned int value)
{
    __atomic_store_n(&mutex.count, value, __ATOMIC_RELAXED);
}

/// The new owner forgets how often the dead one had locked, and remembers that there was one.
void noteDeadOwner(_sync& mutex)
{
    setCount(mutex, (countWord(mutex) & SYNC_KIND) | SYNC_OWNER_DIED);
}

/// Takes a mutex whose owner is known to be gone, unless another thread was faster. Nobody may wait for it in
/// the kernel: the first one who does is its next owner and does not ask.
bool takeFromDead(_sync& mutex, unsigned int word, unsigned int self)
{
    if (!exchangeOwner(mutex, word, self | (word & OWNER_WAITERS)))
    {
        return false;
    }
    annotateAcquired(mutex);
    noteDeadOwner(mutex);
    return true;
}

/// Whether the word names an owner that can no longer unlock: that of a private mutex must be a thread of
/// this process.
bool isOwnerGone(const _sync& mutex, unsigned int word)
{
    return (word & OWNER_ID) != 0U && !threadExists(word & OWNER_ID, isShared(mutex));
}

/// Whether the owner of a private mutex is gone and nobody waits in the kernel. Where somebody may, only the
/// kernel can tell, but for one case: in a forked child nobody ever waits for a thread that stayed behind in
/// the parent.
bool wasAbandoned(const _sync& mutex, unsigned int word)
{
    const bool mayHaveWaiters = (word & OWNER_WAITERS) != 0U;
    if (isShared(mutex) || (mayHaveWaiters && !isForkedChild()) || !isOwnerGone(mutex, word))
    {
        return false;
    }
    return !mayHaveWaiters || threadExists(word & OWNER_ID, true);
}

/// What remains to be done when the kernel has made the caller the owner.
void finishKernelLock(_sync& mutex)
{
    annotateAcquired(mutex);
    if ((ownerWord(mutex) & OWNER_DIED) != 0U)
    {
        // The kernel may set the waiters bit meanwhile, hence no plain store; ordered by the lock itself.
        __atomic_fetch_and(&mutex.owner, ~OWNER_DIED, __ATOMIC_RELAXED);
        noteDeadOwner(mutex);
    }
}

/// The owner locks again.
int lockAgain(_sync& mutex, int errorIfNotRecursive)
{
    const unsigned int count = countWord(mutex);
    if ((count & SYNC_RECURSIVE) == 0U)
    {
        return errorIfNotRecursive;
    }
    if ((count & SYNC_COUNT) == SYNC_COUNT)
    {
        return EAGAIN;
    }
    setCount(mutex, count + 1U);
    return 0;
}

/// Waits a moment for an owner that runs on another processor. Once threads wait in the kernel the mutex goes
/// from one to the next without becoming free, so there is nothing to watch for.
bool spinUntilFree(_sync& mutex, unsigned int self)
{
    if (!hasSeveralProcessors())
    {
        return false;
    }
    for (int i = 0; i < SPIN_COUNT; ++i)
    {
        const unsigned int word = ownerWord(mutex);
        if (word == 0U && takeFree(mutex, self))
        {
            return true;
        }
        if ((word & OWNER_WAITERS) != 0U)
        {
            return false;
        }
        relaxProcessor();
    }
    return false;
}

/// Waits in the kernel, and decides what its refusals mean. `ECANCELED` when the calling thread is to end.
class KernelWait
{
public:
    KernelWait(_sync& mutex, unsigned int self, unsigned long long deadlineNs)
        : m_mutex(mutex)
        , m_self(self)
        , m_deadlineNs(deadlineNs)
    {
    }

    int run()
    {
        for (;;)
        {
            if (takeFree(m_mutex, m_self))
            {
                return 0;
            }
            const unsigned int word = ownerWord(m_mutex);
            if (wasAbandoned(m_mutex, word) && takeFromDead(m_mutex, word, m_self))
            {
                return 0;
            }
            if (isTerminationRequested())
            {
                return ECANCELED;
            }
            const unsigned long long sliceEndNs = endOfSlice();
            const int error = futexLock(&m_mutex.owner, isShared(m_mutex), sliceEndNs);
            if (error == 0)
            {
                finishKernelLock(m_mutex);
                return 0;
            }
            if (ownerDied(error, word) && takeFromDead(m_mutex, word, m_self))
            {
                return 0;
            }
            if (error == ETIMEDOUT && sliceEndNs < m_deadlineNs)
            {
                continue;
            }
            if (isFinal(error))
            {
                return error;
            }
            if (mustPause(error) && !pause())
            {
                return ETIMEDOUT;
            }
        }
    }

private:
    unsigned long long endOfSlice() const
    {
        return mayBeEnded() ? std::min(m_deadlineNs, futexClockNow() + SLICE_NS) : m_deadlineNs;
    }

    /// Whether the kernel means that the owner is gone and nobody waits. It refuses to wait for a stranger,
    /// who got the id of a dead thread of this process.
    bool ownerDied(int error, unsigned int word) const
    {
        return error == ESRCH || (error == EPERM && !isShared(m_mutex) && isOwnerGone(m_mutex, word));
    }

    bool isFinal(int error)
    {
        switch (error)
        {
        case EAGAIN:  // the owner is just ending
        case ESRCH:   // the word changed hands between the look at it and the call
        case EDEADLK: // threads wait for each other
        case ENOMEM:
        case ENOSYS: // a kernel that cannot block on such words
            return false;
        case EINVAL: // passes when it comes from owners and waiters that were killed
            return m_pauses >= MAX_PAUSES_OF_DAMAGED_RECORD;
        default:
            return true;
        }
    }

    bool mustPause(int error)
    {
        if (error == EDEADLK && !m_reported)
        {
            m_reported = true;
            slogf(0, LOG_SEVERITY_ERROR, "deadlock: thread %u waits for a lock of thread %u", m_self,
                  ownerWord(m_mutex) & OWNER_ID);
        }
        return error == EDEADLK || error == ENOMEM || error == EINVAL || error == ENOSYS;
    }

    /// \return false when the deadline has passed.
    bool pause()
    {
        ++m_pauses;
        const unsigned long long now = monotonicNow();
        if (now >= m_deadlineNs)
        {
            return false;
        }
        pauseFor(std::min(m_deadlineNs - now, PAUSE_NS));
        return true;
    }

    _sync& m_mutex;
    const unsigned int m_self;
    const unsigned long long m_deadlineNs;
    int m_pauses = 0;
    bool m_reported = false;
};

/// `ECANCELED` when the calling thread is to end.
int waitTerminable(_sync& mutex, unsigned int self, unsigned long long deadlineNs)
{
    return spinUntilFree(mutex, self) ? 0 : KernelWait(mutex, self, deadlineNs).run();
}

int waitForMutex(_sync& mutex, unsigned int self, unsigned long long deadlineNs)
{
    const int error = waitTerminable(mutex, self, deadlineNs);
    if (error == ECANCELED)
    {
        endCallingThread();
    }
    return error;
}

/// Takes a mutex at once whose owner is gone.
bool tryTakeOver(_sync& mutex, unsigned int self)
{
    const unsigned int word = ownerWord(mutex);
    if (!isOwnerGone(mutex, word))
    {
        return false;
    }
    if (wasAbandoned(mutex, word))
    {
        return takeFromDead(mutex, word, self);
    }
    const int error = futexTryLock(&mutex.owner, isShared(mutex));
    if (error == 0)
    {
        finishKernelLock(mutex);
        return true;
    }
    return error == ESRCH && takeFromDead(mutex, word, self);
}

int setFlag(SyncAttributes* attributes, unsigned int flag, int enabled)
{
    if ((attributes->flags & SYNC_ATTRIBUTES) == 0U || (enabled != 0 && enabled != 1))
    {
        return EINVAL;
    }
    attributes->flags = enabled != 0 ? attributes->flags | flag : attributes->flags & ~flag;
    return 0;
}

} // namespace

namespace KoPlatform
{

int lockMutexUntil(_sync& mutex, unsigned long long deadlineNs)
{
    const unsigned int self = kernelThreadSelf();
    if (takeFree(mutex, self))
    {
        return 0;
    }
    if (isOwnedBy(mutex, self))
    {
        return lockAgain(mutex, EDEADLK);
    }
    return waitForMutex(mutex, self, deadlineNs);
}

int relockMutexUntil(_sync& mutex, unsigned long long deadlineNs)
{
    const unsigned int self = kernelThreadSelf();
    if (takeFree(mutex, self))
    {
        return 0;
    }
    // On one processor the waking thread was interrupted by the woken one: letting it go on costs less than
    // having the kernel hand the mutex over.
    sched_yield();
    return takeFree(mutex, self) ? 0 : waitTerminable(mutex, self, deadlineNs);
}

unsigned int releaseMutex(_sync& mutex)
{
    const unsigned int count = countWord(mutex);
    setCount(mutex, count & ~SYNC_COUNT);
    pthread_mutex_unlock(&mutex);
    return count & SYNC_COUNT;
}

void restoreMutex(_sync& mutex, unsigned int lockedAgain)
{
    setCount(mutex, countWord(mutex) | lockedAgain);
}

int pthread_mutexattr_init(SyncAttributes* attributes)
{
    attributes->flags = SYNC_ATTRIBUTES;
    return 0;
}

int pthread_mutexattr_destroy(SyncAttributes* attributes)
{
    const bool initialised = (attributes->flags & SYNC_ATTRIBUTES) != 0U;
    attributes->flags = 0U;
    return initialised ? 0 : EINVAL;
}

int pthread_mutexattr_setrecursive(SyncAttributes* attributes, int enabled)
{
    return setFlag(attributes, SYNC_RECURSIVE, enabled);
}

int pthread_mutexattr_setpshared(SyncAttributes* attributes, int shared)
{
    return setFlag(attributes, SYNC_SHARED, shared);
}

int pthread_mutex_init(_sync* mutex, const SyncAttributes* attributes)
{
    // Set once the kernel has been asked and said yes; guards nothing else: relaxed.
    static bool sSupported = false;
    *mutex = _sync{0U, 0U};
    if (attributes != nullptr)
    {
        if ((attributes->flags & SYNC_ATTRIBUTES) == 0U)
        {
            return EINVAL;
        }
        mutex->count = attributes->flags & SYNC_KIND;
    }
    if (__atomic_load_n(&sSupported, __ATOMIC_RELAXED))
    {
        return 0;
    }
    const int error = futexCheckPriorityInheritance();
    __atomic_store_n(&sSupported, error == 0, __ATOMIC_RELAXED);
    return error;
}

int pthread_mutex_lock(_sync* mutex)
{
    return lockMutexUntil(*mutex, takeTimeout(TIMEOUT_MUTEX, nullptr));
}

int pthread_mutex_trylock(_sync* mutex)
{
    const unsigned int self = kernelThreadSelf();
    if (takeFree(*mutex, self))
    {
        return 0;
    }
    if (isOwnedBy(*mutex, self))
    {
        return lockAgain(*mutex, EBUSY);
    }
    return tryTakeOver(*mutex, self) ? 0 : EBUSY;
}

int pthread_mutex_timedlock_monotonic(_sync* mutex, unsigned long long deadlineNs)
{
    takeTimeout(0U, nullptr);
    return lockMutexUntil(*mutex, deadlineNs);
}

int pthread_mutex_unlock(_sync* mutex)
{
    unsigned int self = kernelThreadSelf();
    if (!isOwnedBy(*mutex, self))
    {
        return EPERM;
    }
    const unsigned int count = countWord(*mutex);
    if ((count & SYNC_COUNT) != 0U)
    {
        setCount(*mutex, count - 1U);
        return 0;
    }
    // Release pairs with the acquire of the next lock. Once this succeeds another thread may destroy the
    // mutex.
    if (__atomic_compare_exchange_n(&mutex->owner, &self, 0U, false, __ATOMIC_RELEASE, __ATOMIC_RELAXED))
    {
        return 0;
    }
    return SyncMutexUnlock_r(mutex);
}

int pthread_mutex_destroy(_sync* mutex)
{
    const unsigned int word = ownerWord(*mutex);
    if (word != 0U && !isOwnerGone(*mutex, word))
    {
        return EBUSY;
    }
    *mutex = _sync{0U, 0U};
    return 0;
}

int SyncMutexLock_r(_sync* mutex)
{
    const unsigned int self = kernelThreadSelf();
    const unsigned long long deadlineNs = takeTimeout(TIMEOUT_MUTEX, nullptr);
    if (isOwnedBy(*mutex, self))
    {
        return EDEADLK;
    }
    return waitForMutex(*mutex, self, deadlineNs);
}

int SyncMutexUnlock_r(_sync* mutex)
{
    const unsigned int self = kernelThreadSelf();
    int error = EAGAIN;
    for (int i = 0; error != 0 && i < MAX_PAUSES_OF_DAMAGED_RECORD; ++i)
    {
        if (!isOwnedBy(*mutex, self))
        {
            return EPERM;
        }
        const bool shared = isShared(*mutex);
        annotateReleasing(*mutex); // the last look at the record: the next owner may destroy it
        error = futexUnlock(&mutex->owner, shared);
    }
    return error;
}

bool takeOwnerDied(_sync* mutex)
{
    const unsigned int count = countWord(*mutex);
    setCount(*mutex, count & ~SYNC_OWNER_DIED);
    return (count & SYNC_OWNER_DIED) != 0U;
}

} // namespace KoPlatform
